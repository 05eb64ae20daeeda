// The running sum of the registered pictures, laid over the reference frame.
#include <cstdint>
#include <cstdio>
#include <new>

#include "composite/composite.h"
#include "register/kernels.h"
#include "run/fatal_error.h"
#include "run/run_state.h"

uint32_t* Accumulator = nullptr;

// Beyond this many sums the size cannot be a real picture; treat it as a
// failed allocation rather than let the byte count wrap.
static const int64_t MAX_SUMS = INT64_C(1) << 44;

void CreateAccumulator() {
  int64_t width = Reference.width;
  int64_t height = Reference.height;
  uint32_t* sums = nullptr;
  if (width >= 0 && height >= 0 && (width == 0 || height <= MAX_SUMS / 3 / width))
    sums = new (std::nothrow) uint32_t[(size_t)(width * height * 3)]();
  if (sums == nullptr) {
    OutOfMemory();
  }
  Accumulator = sums;
}

void AccumulateComposite(const Image& image) {
  // Reference pixel (x, y) meets image pixel (x + dx, y + dy).
  int64_t dx = (int64_t)image.x0 - Reference.x0;
  int64_t dy = (int64_t)image.y0 - Reference.y0;
  int64_t xBegin = dx < 0 ? -dx : 0;
  int64_t xEnd = (int64_t)image.width - dx;
  if (xEnd > Reference.width) xEnd = Reference.width;
  // Rows of the sum are disjoint: the fast path shares them among threads.
#pragma omp parallel for schedule(static) if (Kernels.level != KERNEL_REFERENCE)
  for (int64_t y = 0; y < Reference.height; y++) {
    int64_t sy = y + dy;
    if (sy < 0 || sy >= image.height) continue;
    const unsigned char* row = image.pixels + sy * image.width * 4;
    uint32_t* sums = Accumulator + y * Reference.width * 3;
    for (int64_t x = xBegin; x < xEnd; x++) {
      const unsigned char* pixel = row + (x + dx) * 4;
      uint32_t weight = pixel[3];
      sums[3 * x] += weight * pixel[0] / 255;
      sums[3 * x + 1] += weight * pixel[1] / 255;
      sums[3 * x + 2] += weight * pixel[2] / 255;
    }
  }
}
