// The composite of whole sequences from the sample generator, run as the
// kelvarion process: registration pays off in the mean picture, and the mean
// picture, the three FITS planes and the registered pictures agree.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "run_process.h"
#include "sample_sequence.h"

namespace {

// A FITS file as an outside reader sees it: the integer cards of the header
// and the 16-bit big-endian values, stored bottom row first, put back in
// memory order (row 0 at the top).
struct FitsPlane {
  bool ok = false;
  std::string bytes;
  long width = -1;
  long height = -1;
  long bitpix = 0;
  long mipsHi = -1;
  long mipsLo = -1;
  std::vector<int> values;
  int At(int x, int y) const { return values[(size_t)y * width + x]; }
};

const size_t FITS_BLOCK = 2880;

FitsPlane ReadFitsPlane(const std::string& path) {
  FitsPlane plane;
  plane.bytes = ReadWholeFile(path);
  if (plane.bytes.size() < FITS_BLOCK) return plane;
  bool ended = false;
  for (size_t card = 0; card < FITS_BLOCK / 80 && !ended; card++) {
    std::string text = plane.bytes.substr(card * 80, 80);
    std::string keyword = text.substr(0, 8);
    keyword.erase(keyword.find_last_not_of(' ') + 1);
    if (keyword == "END") {
      ended = true;
      break;
    }
    if (text[8] != '=') continue;
    long value = strtol(text.substr(9, 21).c_str(), nullptr, 10);
    if (keyword == "NAXIS1") plane.width = value;
    if (keyword == "NAXIS2") plane.height = value;
    if (keyword == "BITPIX") plane.bitpix = value;
    if (keyword == "MIPS-HI") plane.mipsHi = value;
    if (keyword == "MIPS-LO") plane.mipsLo = value;
  }
  if (!ended || plane.bitpix != 16 || plane.width < 0 || plane.height < 0) return plane;
  size_t dataBytes = (size_t)(2 * plane.width * plane.height);
  if (plane.bytes.size() < FITS_BLOCK + dataBytes) return plane;
  plane.values.assign((size_t)(plane.width * plane.height), 0);
  const unsigned char* data = (const unsigned char*)plane.bytes.data() + FITS_BLOCK;
  for (long row = 0; row < plane.height; row++) {
    long y = plane.height - 1 - row;
    for (long x = 0; x < plane.width; x++) {
      const unsigned char* value = data + 2 * (row * plane.width + x);
      plane.values[(size_t)(y * plane.width + x)] = (int16_t)(uint16_t)((value[0] << 8) | value[1]);
    }
  }
  plane.ok = true;
  return plane;
}

// Mean squared difference of the colour bytes against the reference, and mean
// squared horizontal plus vertical step between neighbours, both over the
// picture less a margin wider than any shift of the sequence (the registered
// pictures leave empty strips at their edges).
struct Sharpness {
  double differenceFromReference;
  double gradientEnergy;
};

template <typename Pixel>
Sharpness Measure(int width, int height, int margin, const LoadedPicture& reference, Pixel pixel) {
  double difference = 0.0;
  double gradient = 0.0;
  long samples = 0;
  for (int y = margin; y < height - margin; y++)
    for (int x = margin; x < width - margin; x++)
      for (int c = 0; c < 3; c++) {
        double d = pixel(x, y, c) - reference.At(x, y, c);
        double gx = pixel(x + 1, y, c) - pixel(x, y, c);
        double gy = pixel(x, y + 1, c) - pixel(x, y, c);
        difference += d * d;
        gradient += gx * gx + gy * gy;
        samples++;
      }
  return Sharpness{difference / samples, gradient / samples};
}

// Shifts of up to 4 pixels at a fixed angle. The aligned composite is the
// program's mean of the registered sources. The unaligned one is the same
// mean taken over the sources as they were generated: they have the
// reference's size and centre, so laying them over the reference by their
// centres, as the composite does, pairs pixel (x, y) with pixel (x, y); that
// is exactly the picture the program would build if it found no shift at all,
// computed here without depending on the program's search.
TEST(CompositeEndToEnd, AlignedCompositeIsSharperThanTheUnalignedMean) {
  SampleDirectory dir;
  const int count = 6;
  ASSERT_TRUE(GenerateSample(dir.path, {"--count", std::to_string(count), "--width", "240", "--height", "180",
                                        "--seed", "3", "--scene", "planet", "--max-angle", "0", "--angle-range", "0",
                                        "--max-shift", "4"}));
  ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"});
  ASSERT_EQ(run.exitCode, 0) << run.output;

  // The sequence does move: at least one source is shifted by 3 or more.
  int largest = 0;
  for (const TruePose& pose : ReadTruth(dir.File("truth.txt")))
    largest = std::max(largest, std::max(std::abs(pose.dx), std::abs(pose.dy)));
  ASSERT_GE(largest, 3);

  LoadedPicture reference(dir.File("reference.bmp"));
  LoadedPicture composite(dir.File("composite.bmp"));
  ASSERT_TRUE(reference.loaded);
  ASSERT_TRUE(composite.loaded);
  const int width = reference.image.width;
  const int height = reference.image.height;
  ASSERT_EQ(composite.image.width, width);
  ASSERT_EQ(composite.image.height, height);

  std::vector<int> sums((size_t)width * height * 3, 0);
  for (int i = 1; i <= count; i++) {
    LoadedPicture source(dir.File("src" + std::to_string(i) + ".bmp"));
    ASSERT_TRUE(source.loaded);
    ASSERT_EQ(source.image.width, width);
    ASSERT_EQ(source.image.height, height);
    for (int y = 0; y < height; y++)
      for (int x = 0; x < width; x++)
        for (int c = 0; c < 3; c++) sums[((size_t)y * width + x) * 3 + c] += source.At(x, y, c);
  }
  auto unaligned = [&](int x, int y, int c) { return sums[((size_t)y * width + x) * 3 + c] / count; };
  auto aligned = [&](int x, int y, int c) { return composite.At(x, y, c); };

  const int margin = 5;
  Sharpness alignedMeasure = Measure(width, height, margin, reference, aligned);
  Sharpness unalignedMeasure = Measure(width, height, margin, reference, unaligned);
  printf("\naligned: difference %.2f gradient %.2f; unaligned: difference %.2f gradient %.2f\n",
         alignedMeasure.differenceFromReference, alignedMeasure.gradientEnergy,
         unalignedMeasure.differenceFromReference, unalignedMeasure.gradientEnergy);
  RecordProperty("aligned_difference_x100", (int)(alignedMeasure.differenceFromReference * 100));
  RecordProperty("unaligned_difference_x100", (int)(unalignedMeasure.differenceFromReference * 100));
  RecordProperty("aligned_gradient_x100", (int)(alignedMeasure.gradientEnergy * 100));
  RecordProperty("unaligned_gradient_x100", (int)(unalignedMeasure.gradientEnergy * 100));

  EXPECT_LT(alignedMeasure.differenceFromReference * 5.0, unalignedMeasure.differenceFromReference);
  EXPECT_GT(alignedMeasure.gradientEnergy, unalignedMeasure.gradientEnergy * 2.0);
}

// The mean picture and the three FITS planes of one run, against the
// registered pictures: at a fixed angle the registered pictures keep the
// reference's size and centre and hold whole-pixel copies (weight 255) or
// empty pixels (all bytes 0), so each FITS value, the raw sum with at most
// 127 images, is the sum of the result pictures at that pixel, and each byte
// of the mean is that sum divided by the number of images listed, truncated.
struct CompositeCase {
  const char* name;
  int missing;  // source removed before the run, 0 for none
};

TEST(CompositeEndToEnd, MeanPictureIsTheFitsSumDividedByTheImageCount) {
  const CompositeCase cases[] = {
      {"every source loaded", 0},
      {"second source missing, still counted", 2},
  };
  const int count = 3;
  for (const CompositeCase& c : cases) {
    SCOPED_TRACE(c.name);
    SampleDirectory dir;
    ASSERT_TRUE(GenerateSample(dir.path, {"--count", std::to_string(count), "--width", "240", "--height", "180",
                                          "--seed", "6", "--scene", "planet", "--max-angle", "0", "--angle-range",
                                          "0", "--max-shift", "3"}));
    std::string missingName = "src" + std::to_string(c.missing) + ".bmp";
    if (c.missing != 0) {
      ASSERT_EQ(unlink(dir.File(missingName).c_str()), 0);
    }
    ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    if (c.missing != 0) {
      EXPECT_NE(run.output.find("Chargement du fichier " + missingName + "Erreur : impossible d'ouvrir l'image " +
                                missingName + "\n"),
                std::string::npos);
      EXPECT_FALSE(FileExists(dir.File("res" + std::to_string(c.missing) + ".bmp")));
    }
    // The three planes are written silently before the mean picture.
    EXPECT_NE(run.output.find("Sauvegarde de l'image compositee : composite.bmp\n"
                              "Sauvegarde d'une image composite.bmp FIN\n"),
              std::string::npos);

    LoadedPicture reference(dir.File("reference.bmp"));
    LoadedPicture composite(dir.File("composite.bmp"));
    ASSERT_TRUE(reference.loaded);
    ASSERT_TRUE(composite.loaded);
    const int width = reference.image.width;
    const int height = reference.image.height;
    ASSERT_EQ(composite.image.width, width);
    ASSERT_EQ(composite.image.height, height);

    std::vector<std::unique_ptr<LoadedPicture>> results;
    for (int i = 1; i <= count; i++) {
      if (i == c.missing) continue;
      results.push_back(std::make_unique<LoadedPicture>(dir.File("res" + std::to_string(i) + ".bmp")));
      ASSERT_TRUE(results.back()->loaded) << "res" << i;
      ASSERT_EQ(results.back()->image.width, width);
      ASSERT_EQ(results.back()->image.height, height);
    }

    // R, V and B hold the red, green and blue sums: bytes 2, 1 and 0.
    const struct {
      const char* file;
      int byte;
    } planes[] = {{"compositeR.fit", 2}, {"compositeV.fit", 1}, {"compositeB.fit", 0}};
    long sumsAboveAByte = 0;
    long meansThatTheLoadedCountWouldChange = 0;
    for (const auto& p : planes) {
      SCOPED_TRACE(p.file);
      FitsPlane plane = ReadFitsPlane(dir.File(p.file));
      ASSERT_TRUE(plane.ok);
      ASSERT_EQ(plane.width, width);
      ASSERT_EQ(plane.height, height);
      size_t dataBytes = (size_t)2 * width * height;
      EXPECT_EQ(plane.bytes.size(), FITS_BLOCK + (dataBytes + FITS_BLOCK - 1) / FITS_BLOCK * FITS_BLOCK);
      // The value range follows the number of images listed, not loaded.
      EXPECT_EQ(plane.mipsHi, 256 * count);
      EXPECT_EQ(plane.mipsLo, 0);
      long mismatchedSums = 0;
      long mismatchedMeans = 0;
      for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
          int sum = 0;
          for (const auto& result : results) sum += result->At(x, y, p.byte);
          int value = plane.At(x, y);
          if (value != sum) mismatchedSums++;
          if (composite.At(x, y, p.byte) != value / count) mismatchedMeans++;
          if (value > 255) sumsAboveAByte++;
          if (value / count != value / (int)results.size()) meansThatTheLoadedCountWouldChange++;
        }
      EXPECT_EQ(mismatchedSums, 0);
      EXPECT_EQ(mismatchedMeans, 0);
    }
    // The planes hold sums, not means.
    EXPECT_GT(sumsAboveAByte, 0);
    // With a source missing, dividing by the images loaded would change the mean.
    if (c.missing != 0) {
      EXPECT_GT(meansThatTheLoadedCountWouldChange, 0);
    }
  }
}

}  // namespace
