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

TEST(SampleBilinear, EdgesAndBlends) {
  unsigned char bytes[] = {10, 0, 40, 255, 110, 1, 41, 255, 200, 2, 42, 255,  // 3 x 2 pixels,
                           20, 3, 43, 255, 120, 4, 44, 0, 210, 5, 45, 255};  // (1, 1) empty
  const struct { const char* name; double sx, sy; std::vector<int> bytes; } cases[] = {
      {"half way across blends and truncates", 0.5, 0.0, {60, 0, 40, 255}},
      {"last column copies without blending", 2.7, 0.5, {200, 2, 42, 255}},
      {"last row copies without blending", 0.9, 1.3, {20, 3, 43, 255}},
      {"floor: column -0.25 is outside, not column 0", -0.25, 0.0, {0, 0, 0, 0}},
      {"width is outside", 3.0, 0.0, {0, 0, 0, 0}}};
  for (const auto& c : cases) {
    unsigned char out[4] = {9, 9, 9, 9};
    SampleBilinear(Image{bytes, 3, 2, 0, 0}, c.sx, c.sy, out);
    EXPECT_EQ(std::vector<int>(out, out + 4), c.bytes) << c.name;
  }
}

// Pixel (u, v) from the output's point samples the source at P + (C u - S v, S u + C v). Transform by theta
// and (7, 5): P the point + (7, 5), C, S double, positions rounded to float; box of the turned corners.
// Patch: P the point, C, S rounded to float, positions truncated toward zero, odd rows empty. 1/8: C = 8.
TEST(Resampling, BoxesAndSamplePositions) {
  const struct { char kind; Image source; float theta; std::vector<int32_t> box; } cases[] = {
      {'T', Random(200, 100, 100, 50), -0.2f, {215, 137, 107, 68}},  // a wide box, point from the height
      {'T', Random(100, 100, 10, 80), 0.1f, {109, 109, 17, 88}},      // point from the width
      {'P', Random(5, 5, 0, 0), 0.2f, {3, 1, 1, 0}},                  // -C at u = -1 truncates to column 0
      {'P', Random(2000, 200, 1000, 100), 0.071682997f, {2000, 1, 1000, 0}},  // sinf: row 47 at u = -740
      {'P', Random(803, 600, 401, 300), 0, {200, 150, 100, 75}},      // the central part
      {'S', Random(803, 600, 401, -300), 0, {100, 75, 50, -37}},      // -37.5 truncates to -37
      {'S', Random(7, 16, 3, 8), 0, {0, 2, 0, 1}}};                   // width 7 / 8 is 0
  for (const auto& c : cases) {
    Image out = c.kind == 'T'   ? TransformImage(c.source, c.theta, 7, 5)
                : c.kind == 'P' ? RotatedPatch(c.source, c.box[0], c.box[1], c.theta)
                                : ScaleImage(c.source, 0.125f);
    EXPECT_EQ(std::vector<int32_t>({out.width, out.height, out.x0, out.y0}), c.box);
    double t = c.theta;
    double cosine = c.kind == 'S' ? 8 : c.kind == 'P' ? (float)cos(t) : cos(t);
    double sine = c.kind == 'P' ? (float)sin(t) : sin(t);
    double px = c.kind == 'S' ? 8.0 * out.x0 : c.source.x0 + (c.kind == 'T' ? 7.0 : 0.0);
    double py = c.kind == 'S' ? 8.0 * out.y0 : c.source.y0 + (c.kind == 'T' ? 5.0 : 0.0);
    auto round = [&c](double p) { return c.kind == 'T' ? (float)p : c.kind == 'P' ? trunc(p) : p; };
    int wrong = 0;
    for (int32_t i = 0; i < out.width * out.height; i++) {
      double u = i % out.width - out.x0, v = i / out.width - out.y0;
      double sy = c.kind == 'P' && i / out.width % 2 ? -1 : round(py + sine * u + cosine * v);
      unsigned char expected[4];
      SampleBilinear(c.source, round(px + cosine * u - sine * v), sy, expected);
      wrong += memcmp(expected, out.pixels + 4 * i, 4) != 0;
    }
    EXPECT_EQ(wrong, 0) << c.kind << " " << c.box[0] << " x " << c.box[1];
    ReleasePixels(out);
  }
}

}  // namespace
