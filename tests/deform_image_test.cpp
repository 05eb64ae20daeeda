#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>

#include "blocks/blocks.h"
#include "test_pictures.h"

namespace {

// Deforms through columns x rows blocks of cell pixels; spare field entries are NaN, so reading one shows.
TestPicture Deform(const TestPicture& p, int cell, int cols, int rows, std::vector<float> dx, std::vector<float> dy) {
  dx.resize((size_t)(cols + 1) * (rows + 1), NAN);
  dy.resize(dx.size(), NAN);
  Image result = DeformImage(p.image, BlockField{dx.data(), dy.data(), nullptr, cols, rows}, cell, cell);
  TestPicture out = MakePicture(result.width, result.height, result.x0, result.y0);
  memcpy(out.bytes.data(), result.pixels, out.bytes.size());
  ReleasePixels(result);
  return out;
}

// Whether pixel (x, y) of a is pixel (sx, sy) of b, or empty where that lies outside b.
bool Fetched(const TestPicture& a, int32_t x, int32_t y, const TestPicture& b, int32_t sx, int32_t sy) {
  const unsigned char empty[4] = {};
  bool inside = sx >= 0 && sy >= 0 && sx < b.image.width && sy < b.image.height;
  const unsigned char* from = inside ? &b.bytes[(sy * b.image.width + sx) * 4] : empty;
  return memcmp(&a.bytes[(y * a.image.width + x) * 4], from, 4) == 0;
}

// Constant over 2 x 2 blocks, one column and one row; then 0, 2, 4 down one column of cell 2 (rows 1, 3, 5).
TEST(DeformImage, WholeOffsetsMoveThePixelsWeightIncluded) {
  TestPicture p = MakePicture(11, 7, 4, -3);
  for (uint32_t state = 5u; unsigned char& byte : p.bytes) byte = (unsigned char)NextRandom(state);
  for (auto [columns, rows, dx, dy] : {std::tuple{2, 2, 0, 0}, std::tuple{1, 3, 2, 0}, std::tuple{3, 1, 0, -1}}) {
    std::vector<float> x(columns * rows, (float)dx), y(columns * rows, (float)dy);
    TestPicture out = Deform(p, 4, columns, rows, x, y);
    for (int32_t i = 0; i < 77; i++)
      EXPECT_TRUE(Fetched(out, i % 11, i / 11, p, i % 11 - dx, i / 11 - dy)) << dx << "," << dy << ": " << i;
  }
  TestPicture out = Deform(p, 2, 1, 3, {0, 2, 4}, {0, 0, 0});
  for (int32_t i = 0; i < 77; i++)
    EXPECT_TRUE(Fetched(out, i % 11, i / 11, p, i % 11 - std::clamp(i / 11 - 1, 0, 4), i / 11)) << i;
}

// Columns 0, 1 hold a, b: x = 0 samples at -0.5 (whole 0, weight -0.5), 1.5 a - 0.5 b truncated in 8 bits.
TEST(DeformImage, HalfPixelFieldBlendsExtrapolatesAndWraps) {
  const unsigned char ab[][3] = {{250, 10, 114}, {10, 250, 146}, {0, 1, 0}};  // a, b, the blend at x = 0
  TestPicture p = MakePicture(6, 4, 0, 0);
  for (int32_t i = 0; i < 24; i++) {
    unsigned char v = i % 6 < 2 ? ab[i / 6 % 3][i % 6] : (unsigned char)(37 * i);
    SetPixel(p, i % 6, i / 6, v, v, v, 255);
  }
  TestPicture out = Deform(p, 32, 1, 1, {0.5f}, {0});
  for (int32_t i = 0; i < 72; i++)  // beyond x = 0 the mean of columns x - 1 and x
    EXPECT_EQ(out.bytes[i], i % 24 < 4 ? (i % 4 == 3 ? 255 : ab[i / 24][2]) : (p.bytes[i - 4] + p.bytes[i]) / 2) << i;
  for (int32_t x = 0; x < 6; x++) EXPECT_TRUE(Fetched(out, x, 3, p, std::max(x - 1, 0), 3)) << x;  // last row copies
}

// Cell 5: points at 2.5, 7.5, 12.5, offsets 0, 0, 10 (a second row of zeros at fy 0); x = 7: k 1, fx -0.1.
TEST(DeformImage, OddCellSizeExtrapolatesBetweenBlockPoints) {
  TestPicture p = MakePicture(20, 3, 0, 0);
  for (int32_t i = 0; i < 60; i++) SetPixel(p, i % 20, i / 20, (unsigned char)(10 * (i % 20)), 0, 0, 255);
  const int32_t cases[][2] = {{0, 0}, {2, 2}, {3, 3}, {7, 8}, {8, 7}, {12, 2}, {13, 3}, {19, 9}};  // x, source x
  TestPicture out = Deform(p, 5, 3, 2, {0, 0, 10, 0, 0, 0}, {0, 0, 0, 0, 0, 0});
  for (auto [x, from] : cases)
    for (int32_t y = 0; y < 3; y++) EXPECT_EQ(out.bytes[(y * 20 + x) * 4], 10 * from) << x << "," << y;
}

}  // namespace
