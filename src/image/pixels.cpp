#include <cstdint>
#include <cstdio>
#include <new>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "image/image.h"
#include "run/fatal_error.h"

// Largest array we ever ask for; a size beyond it cannot be a real picture and
// is treated like a failed allocation rather than wrapping around.
static const int64_t MAX_PIXEL_BYTES = INT64_C(1) << 46;

unsigned char* AllocatePixels(int64_t width, int64_t height) {
  unsigned char* pixels = nullptr;
  if (width >= 0 && height >= 0 && (width == 0 || height <= MAX_PIXEL_BYTES / 4 / width))
    pixels = new (std::nothrow) unsigned char[(size_t)(width * height * 4)];
  if (pixels == nullptr) {
    OutOfMemory();
  }
  return pixels;
}

void ReleasePixels(Image& image) {
  delete[] image.pixels;
  image.pixels = nullptr;
}

void KeepLargeBuffers() {
#ifdef __GLIBC__
  // Every picture is a large array allocated and released once per frame.
  // Kept in the heap instead of being mapped and unmapped each time, their
  // pages are not faulted in and cleared again for every frame.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
#endif
}
