// Small pictures built in memory for the tests.
#pragma once

#include <cstdint>
#include <vector>

#include "image/image.h"

// A picture whose pixels live in a vector the test owns.
struct TestPicture {
  std::vector<unsigned char> bytes;
  Image image;
};

inline TestPicture MakePicture(int32_t width, int32_t height, int32_t x0, int32_t y0) {
  TestPicture picture;
  picture.bytes.assign((size_t)width * height * 4, 0);
  picture.image = Image{picture.bytes.data(), width, height, x0, y0};
  return picture;
}

inline void SetPixel(TestPicture& picture, int32_t x, int32_t y, unsigned char b, unsigned char g,
                     unsigned char r, unsigned char weight) {
  unsigned char* p = &picture.bytes[((size_t)y * picture.image.width + x) * 4];
  p[0] = b;
  p[1] = g;
  p[2] = r;
  p[3] = weight;
}

inline void Fill(TestPicture& picture, unsigned char b, unsigned char g, unsigned char r,
                 unsigned char weight) {
  for (int32_t y = 0; y < picture.image.height; y++)
    for (int32_t x = 0; x < picture.image.width; x++) SetPixel(picture, x, y, b, g, r, weight);
}

// Deterministic pseudo-random bytes (the seed is part of each test's name or parameters).
inline uint32_t NextRandom(uint32_t& state) {
  state = state * 1664525u + 1013904223u;
  return state >> 8;
}
