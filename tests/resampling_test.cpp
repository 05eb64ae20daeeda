#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "register/register.h"
#include "test_pictures.h"

namespace {

// w x h pixels of one random picture (weights 255, filled on first use), with point (x0, y0).
Image Random(int32_t w, int32_t h, int32_t x0, int32_t y0) {
  static std::vector<unsigned char> bytes(2000 * 600 * 4);
  for (uint32_t i = 0, state = 7; bytes.back() == 0; i++)
    bytes[i] = i % 4 == 3 ? 255 : (unsigned char)NextRandom(state);
  return {bytes.data(), w, h, x0, y0};
}

std::vector<int32_t> Box(const Image& i) { return {i.width, i.height, i.x0, i.y0}; }

// Pixel (x, y) of a equals pixel (bx, by) of b, or is empty when that lies outside b.
bool Shows(const Image& a, int64_t x, int64_t y, const Image& b, int64_t bx, int64_t by) {
  static const unsigned char empty[4] = {0, 0, 0, 0};
  bool inside = bx >= 0 && by >= 0 && bx < b.width && by < b.height;
  const unsigned char* expected = inside ? b.pixels + (by * b.width + bx) * 4 : empty;
  return memcmp(a.pixels + (y * a.width + x) * 4, expected, 4) == 0;
}

// Output (u, v) from its point samples the source at x0 + dx + C u - S v, y0 + dy + S u + C v
// (C, S double) rounded to float, which at 0.3 rad changes some truncated blends.
TEST(TransformImage, SamplePositionsAreRoundedToFloat) {
  Image source = Random(64, 48, 30, 20), out = TransformImage(source, 0.3f, 2, -1);
  double c = cos((double)0.3f), s = sin((double)0.3f);
  int wrong = 0;
  for (int32_t i = 0; i < out.width * out.height; i++) {
    double u = i % out.width - out.x0, v = i / out.width - out.y0;
    unsigned char expected[4];
    SampleBilinear(source, (float)(32 + c * u - s * v), (float)(19 + s * u + c * v), expected);
    wrong += memcmp(expected, out.pixels + 4 * i, 4) != 0;
  }
  EXPECT_EQ(wrong, 0);
  ReleasePixels(out);
}

TEST(SampleBilinear, EdgesAndBlends) {
  unsigned char bytes[] = {10, 0, 40, 255, 110, 1, 41, 255, 200, 2, 42, 255,  // 3 x 2 pixels,
                           20, 3, 43, 255, 120, 4, 44, 0, 210, 5, 45, 255};  // (1, 1) empty
  const struct { const char* name; double sx, sy; std::vector<int> bytes; } cases[] = {
      {"half way across blends and truncates", 0.5, 0.0, {60, 0, 40, 255}},
      {"weight blends with an empty neighbour", 1.0, 0.5, {115, 2, 42, 127}},
      {"last column copies without blending", 2.7, 0.5, {200, 2, 42, 255}},
      {"last row copies without blending", 0.9, 1.3, {20, 3, 43, 255}},
      {"floor: column -0.25 is outside, not column 0", -0.25, 0.0, {0, 0, 0, 0}},
      {"width is outside", 3.0, 0.0, {0, 0, 0, 0}},
      {"far away is outside", 1e300, -1e300, {0, 0, 0, 0}}};
  for (const auto& c : cases) {
    unsigned char out[4] = {9, 9, 9, 9};
    SampleBilinear(Image{bytes, 3, 2, 0, 0}, c.sx, c.sy, out);
    EXPECT_EQ(std::vector<int>(out, out + 4), c.bytes) << c.name;
  }
}

// Patch (u, v) from its point shows the source at (C u - S v, S u + C v) from the source's
// point, truncated toward zero; C and S are the double cosine and sine rounded to float.
TEST(RotatedPatch, TurnedPositionsTruncateTowardZero) {
  const struct { const char* name; Image source; int32_t w, h; float theta; int32_t x, y, sx, sy; }
      cases[] = {
      {"angle 0: u = -1 is column -1, outside", Random(5, 5, 0, 0), 3, 1, 0, 0, 0, -1, 0},
      {"0.2 rad: u = -1 is (-C, -S), truncated to (0, 0)", Random(5, 5, 0, 0), 3, 1, 0.2f, 0, 0, 0, 0},
      {"quarter turn: C is a tiny negative float, column 3", Random(9, 9, 4, 4), 9, 9, 1.5707964f, 6, 4, 3, 6},
      {"0.3 rad, v = 2: -S v truncates to column 99", Random(200, 200, 100, 100), 9, 5, 0.3f, 4, 4, 99, 101},
      {"(float)sin, not sinf: row 47 at u = -740", Random(2000, 200, 1000, 100), 2000, 1, 0.071682997f, 260, 0, 261, 47}};
  for (const auto& c : cases) {
    Image patch = RotatedPatch(c.source, c.w, c.h, c.theta);
    EXPECT_TRUE(Shows(patch, c.x, c.y, c.source, c.sx, c.sy)) << c.name;
    ReleasePixels(patch);
  }
}

// Output (x, y) shows source (step x + dx, step y + dy), or is empty where that lies outside
// or on an odd row of a patch (odd); for step 0 the box alone (shift 7, 5 cancels out in it).
TEST(Resampling, BoxesAndCopiesWithoutBlending) {
  const Image s = Random(803, 600, 401, 300);
  const struct { const char* name; Image out; int32_t step, dx, dy; bool odd;
                 std::vector<int32_t> box; } cases[] = {
      {"100 x 100 at 0.1 rad is 109 x 109", TransformImage(Random(100, 100, 50, 50), 0.1f, 7, 5), 0, 0, 0, 0, {109, 109, 54, 54}},
      {"wide at -0.2 rad", TransformImage(Random(200, 100, 100, 50), -0.2f, 7, 5), 0, 0, 0, 0, {215, 137, 107, 68}},
      {"off-centre point, positive angle", TransformImage(Random(100, 100, 10, 80), 0.1f, 7, 5), 0, 0, 0, 0, {109, 109, 17, 88}},
      {"off-centre point, negative angle", TransformImage(Random(100, 100, 10, 80), -0.1f, 7, 5), 0, 0, 0, 0, {109, 109, 11, 80}},
      {"angle 0 without shift is an identity", TransformImage(s, 0, 0, 0), 1, 0, 0, 0, Box(s)},
      {"whole shift (3, -2): no blending, edges empty", TransformImage(s, 0, 3, -2), 1, 3, -2, 0, Box(s)},
      {"full-size patch off centre runs off the edges", RotatedPatch(Random(803, 600, 500, 200), 803, 600, 0), 1, 99, -100, 1, Box(s)},
      {"quarter patch is the central part", RotatedPatch(s, 200, 150, 0), 1, 301, 225, 1, {200, 150, 100, 75}},
      {"803 x 600 by 1/8: 100 x 75, point truncated", ScaleImage(Random(803, 600, 401, -300), 0.125f), 8, 0, 0, 0, {100, 75, 50, -37}},
      {"width 7 by 1/8 is 0", ScaleImage(Random(7, 16, 3, 8), 0.125f), 8, 0, 0, 0, {0, 2, 0, 1}}};

  for (auto c : cases) {
    EXPECT_EQ(Box(c.out), c.box) << c.name;
    int wrong = 0;
    for (int32_t y = 0; c.step && y < c.out.height; y++)
      for (int32_t x = 0; x < c.out.width; x++)
        wrong += !Shows(c.out, x, y, s, c.odd && y % 2 ? -1 : c.step * x + c.dx, c.step * y + c.dy);
    EXPECT_EQ(wrong, 0) << c.name;
    ReleasePixels(c.out);
  }
}

}  // namespace
