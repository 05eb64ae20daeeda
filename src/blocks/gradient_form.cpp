#include <cstdint>

#include "blocks/blocks.h"

// Bytes 1 and 2 of the inner pixels of row y from the grey (byte 0) of their
// four neighbours; a row of a picture whose grey is complete.
static void GradientRow(unsigned char* pixels, int64_t width, int64_t y) {
  for (int64_t x = 1; x <= width - 2; x++) {
    unsigned char* p = pixels + (y * width + x) * 4;
    int left = p[-4];
    int right = p[4];
    int above = p[-width * 4];
    int below = p[width * 4];
    p[1] = (unsigned char)(128 + (left - right) / 2);
    p[2] = (unsigned char)(128 + (above - below) / 2);
  }
}

void MakeGradientForm(Image& image) {
  int64_t width = image.width;
  int64_t height = image.height;
  unsigned char* pixels = image.pixels;
  if (width <= 0 || height <= 0) return;

  // Grey first over the whole picture: the gradients below read the grey of
  // both neighbours, so none may still hold its colour bytes.
  for (int64_t i = 0; i < width * height; i++) {
    unsigned char* p = pixels + i * 4;
    p[0] = (unsigned char)((p[0] + p[1] + p[2]) / 3);
  }

  for (int64_t y = 1; y <= height - 2; y++) GradientRow(pixels, width, y);
}

// The same bytes as a copy followed by MakeGradientForm, in two passes over
// rows: the grey of every pixel first, then the gradients, which read the
// grey of the rows above and below.
Image GradientCopy(const Image& source) {
  Image copy = source;
  copy.pixels = AllocatePixels(source.width, source.height);
  int64_t width = source.width;
  int64_t height = source.height;
  if (width <= 0 || height <= 0) return copy;
#pragma omp parallel for schedule(static)
  for (int64_t y = 0; y < height; y++) {
    const unsigned char* in = source.pixels + y * width * 4;
    unsigned char* out = copy.pixels + y * width * 4;
    for (int64_t x = 0; x < width; x++, in += 4, out += 4) {
      out[0] = (unsigned char)((in[0] + in[1] + in[2]) / 3);
      out[1] = in[1];
      out[2] = in[2];
      out[3] = in[3];
    }
  }
#pragma omp parallel for schedule(static)
  for (int64_t y = 1; y <= height - 2; y++) GradientRow(copy.pixels, width, y);
  return copy;
}
