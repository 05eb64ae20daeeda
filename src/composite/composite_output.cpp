// The end of a compositing run: the three FITS planes of the sums, then the
// mean picture as a BMP file.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "composite/composite.h"
#include "image/fits_writer.h"
#include "image/image.h"
#include "run/fatal_error.h"
#include "run/run_state.h"
#include "run/settings.h"

static const size_t LONGEST_SUFFIX = 5;  // "R.fit"

// Every pixel of Composite is the mean of the sums, truncated; ImageCount counts
// the images that could not be loaded as well.
static void BuildMean() {
  Composite.width = Reference.width;
  Composite.height = Reference.height;
  Composite.x0 = Reference.x0;
  Composite.y0 = Reference.y0;
  Composite.pixels = AllocatePixels(Composite.width, Composite.height);
  uint32_t count = (uint32_t)ImageTable.ImageCount;
  int64_t pixelCount = (int64_t)Composite.width * Composite.height;
  for (int64_t i = 0; i < pixelCount; i++) {
    for (int c = 0; c < 3; c++)
      Composite.pixels[4 * i + c] = (unsigned char)(count > 0 ? Accumulator[3 * i + c] / count : 0);
    Composite.pixels[4 * i + 3] = 255;
  }
}

void SaveComposite() {
  const char* name = ImageTable.CompositeName;
  printf("Sauvegarde de l'image compositee : %s\n", name);
  // The base is the name up to its first ".", wherever it stands; the buffer is
  // sized for it whatever its length.
  size_t baseLength = strcspn(name, ".");
  char* fileName = new (std::nothrow) char[baseLength + LONGEST_SUFFIX + 1];
  if (fileName == nullptr) {
    printf("Erreur : pas assez de memoire \n");
    FatalError();
  }
  memcpy(fileName, name, baseLength);
  strcpy(fileName + baseLength, "R.fit");
  SaveFitsPlane(fileName, 2);
  strcpy(fileName + baseLength, "V.fit");
  SaveFitsPlane(fileName, 1);
  strcpy(fileName + baseLength, "B.fit");
  SaveFitsPlane(fileName, 0);
  BuildMean();
  delete[] Accumulator;
  Accumulator = nullptr;
  strcpy(fileName + baseLength, ".bmp");
  SaveBmp(Composite, fileName);
  delete[] fileName;
  ReleasePixels(Composite);
}
