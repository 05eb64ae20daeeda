// The in-memory picture and its two file formats.
#pragma once

#include "run/float_model.h"

#include <cstdint>

// A picture: width x height pixels of 4 bytes (blue, green, red, weight),
// rows top-down. Weight 255 for a pixel read from a file, 0 for an empty one.
// pixels is one array allocation owned by whoever holds the record.
struct Image {
  unsigned char* pixels;
  int32_t width;
  int32_t height;
  int32_t x0;  // reference point (rotation centre), column from the left
  int32_t y0;  // reference point, row from the top
};

// Allocates width x height x 4 bytes with new[]. A size that cannot be
// represented or allocated prints "Erreur : pas assez de memoire " and ends
// the run through FatalError. The caller owns the array (ReleasePixels).
unsigned char* AllocatePixels(int64_t width, int64_t height);

// Asks the allocator to keep released picture arrays for reuse rather than
// hand them back to the system. Called once at start-up.
void KeepLargeBuffers();

// Releases the record's pixel array and leaves pixels null.
void ReleasePixels(Image& image);

// Reads a BMP file into image.pixels, width and height (x0, y0 untouched).
// 0: loaded; 1: the file could not be opened (message printed, record unchanged).
// Every other failure is fatal.
int LoadImage(Image& image, const char* path);

// Writes image as a 24-bit BMP. A file that cannot be written is reported on
// the console and counted in WriteFailureCount; an existing file is kept intact.
void SaveBmp(const Image& image, const char* path);
