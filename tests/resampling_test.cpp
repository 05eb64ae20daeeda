#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "register/register.h"
#include "test_pictures.h"

namespace {

void FillRandom(TestPicture& picture, uint32_t seed) {
  uint32_t state = seed;
  for (unsigned char& byte : picture.bytes) byte = (unsigned char)NextRandom(state);
  for (size_t i = 3; i < picture.bytes.size(); i += 4) picture.bytes[i] = 255;
}

const unsigned char* PixelAt(const Image& image, int64_t x, int64_t y) {
  return image.pixels + (y * image.width + x) * 4;
}

bool IsEmptyPixel(const Image& image, int64_t x, int64_t y) {
  const unsigned char* p = PixelAt(image, x, y);
  return p[0] == 0 && p[1] == 0 && p[2] == 0 && p[3] == 0;
}

bool SamePixel(const Image& a, int64_t ax, int64_t ay, const Image& b, int64_t bx, int64_t by) {
  return memcmp(PixelAt(a, ax, ay), PixelAt(b, bx, by), 4) == 0;
}

// ---- TransformImage ----

struct TransformCase {
  const char* name;
  int32_t width, height, x0, y0;
  float theta, dx, dy;
  int32_t outWidth, outHeight, outX0, outY0;
};

TEST(TransformImage, SizeAndReferencePointOfTheTurnedBox) {
  const TransformCase cases[] = {
      {"square 0.1 rad grows to 109", 100, 100, 50, 50, 0.1f, 0, 0, 109, 109, 54, 54},
      {"square -0.1 rad is symmetric", 100, 100, 50, 50, -0.1f, 0, 0, 109, 109, 54, 54},
      {"wide 0.2 rad", 200, 100, 100, 50, 0.2f, 0, 0, 215, 137, 107, 68},
      {"wide -0.2 rad", 200, 100, 100, 50, -0.2f, 0, 0, 215, 137, 107, 68},
      {"off-centre point, positive angle uses q", 100, 100, 10, 80, 0.1f, 0, 0, 109, 109, 17, 88},
      {"off-centre point, negative angle uses p", 100, 100, 10, 80, -0.1f, 0, 0, 109, 109, 11, 80},
      {"zero angle keeps size and point", 64, 48, 32, 24, 0.0f, 0, 0, 64, 48, 32, 24},
      {"shift cancels in the size", 64, 48, 32, 24, 0.0f, 3, -2, 64, 48, 32, 24},
      {"half a radian", 120, 90, 60, 45, 0.5f, 7, 5, 148, 136, 74, 68},
  };
  for (const TransformCase& c : cases) {
    TestPicture source = MakePicture(c.width, c.height, c.x0, c.y0);
    FillRandom(source, 7);
    Image out = TransformImage(source.image, c.theta, c.dx, c.dy);
    EXPECT_EQ(out.width, c.outWidth) << c.name;
    EXPECT_EQ(out.height, c.outHeight) << c.name;
    EXPECT_EQ(out.x0, c.outX0) << c.name;
    EXPECT_EQ(out.y0, c.outY0) << c.name;
    ReleasePixels(out);
  }
}

TEST(TransformImage, ReferencePointShowsTheShiftedSourcePoint) {
  const float thetas[] = {-0.3f, -0.05f, 0.0f, 0.02f, 0.4f};
  TestPicture source = MakePicture(60, 40, 25, 18);
  FillRandom(source, 11);
  for (float theta : thetas) {
    Image out = TransformImage(source.image, theta, 4.0f, -3.0f);
    // u = v = 0: the position is exactly (x0 + dx, y0 + dy), no blending.
    EXPECT_TRUE(SamePixel(out, out.x0, out.y0, source.image, 29, 15)) << theta;
    ReleasePixels(out);
  }
}

TEST(TransformImage, ZeroAngleZeroShiftIsAnIdentity) {
  TestPicture source = MakePicture(13, 9, 6, 4);
  FillRandom(source, 3);
  SetPixel(source, 12, 8, 1, 2, 3, 0);  // an empty pixel stays as it is
  Image out = TransformImage(source.image, 0.0f, 0.0f, 0.0f);
  ASSERT_EQ(out.width, 13);
  ASSERT_EQ(out.height, 9);
  EXPECT_EQ(out.x0, 6);
  EXPECT_EQ(out.y0, 4);
  EXPECT_EQ(memcmp(out.pixels, source.bytes.data(), source.bytes.size()), 0);
  ReleasePixels(out);
}

TEST(TransformImage, ZeroAngleWholeShiftMovesWithoutBlending) {
  TestPicture source = MakePicture(11, 8, 5, 4);
  FillRandom(source, 5);
  Image out = TransformImage(source.image, 0.0f, 3.0f, -2.0f);
  ASSERT_EQ(out.width, 11);
  ASSERT_EQ(out.height, 8);
  for (int32_t y = 0; y < 8; y++) {
    for (int32_t x = 0; x < 11; x++) {
      if (x >= 8 || y < 2)
        EXPECT_TRUE(IsEmptyPixel(out, x, y)) << x << "," << y;
      else
        EXPECT_TRUE(SamePixel(out, x, y, source.image, x + 3, y - 2)) << x << "," << y;
    }
  }
  ReleasePixels(out);
}

// Sample positions are rounded to float before sampling; on a random picture
// that rounding changes some truncated blends, and the output follows it.
TEST(TransformImage, SamplePositionsAreRoundedToFloat) {
  TestPicture source = MakePicture(64, 48, 30, 20);
  FillRandom(source, 12);
  const float theta = 0.3f, dx = 2.0f, dy = -1.0f;
  Image out = TransformImage(source.image, theta, dx, dy);
  double c = cos((double)theta), s = sin((double)theta);
  int roundingMatters = 0, mismatches = 0;
  for (int32_t y = 0; y < out.height; y++)
    for (int32_t x = 0; x < out.width; x++) {
      double u = x - out.x0, v = y - out.y0;
      double sx = 30.0 + dx + c * u - s * v;
      double sy = 20.0 + dy + s * u + c * v;
      unsigned char rounded[4], exact[4];
      SampleBilinear(source.image, (float)sx, (float)sy, rounded);
      SampleBilinear(source.image, sx, sy, exact);
      if (memcmp(rounded, exact, 4) != 0) roundingMatters++;
      if (memcmp(rounded, PixelAt(out, x, y), 4) != 0) mismatches++;
    }
  EXPECT_GT(roundingMatters, 0);
  EXPECT_EQ(mismatches, 0);
  ReleasePixels(out);
}

// ---- SampleBilinear ----

struct SampleCase {
  const char* name;
  double sx, sy;
  unsigned char expected[4];
};

TEST(SampleBilinear, EdgesAndBlends) {
  // 3 x 2 picture:   (0,0) 10  (1,0) 110 (2,0) 200
  //                  (0,1) 20  (1,1) 120 (2,1) 210   in blue; weights 255 except (1,1) empty.
  TestPicture source = MakePicture(3, 2, 0, 0);
  SetPixel(source, 0, 0, 10, 0, 40, 255);
  SetPixel(source, 1, 0, 110, 1, 41, 255);
  SetPixel(source, 2, 0, 200, 2, 42, 255);
  SetPixel(source, 0, 1, 20, 3, 43, 255);
  SetPixel(source, 1, 1, 120, 4, 44, 0);
  SetPixel(source, 2, 1, 210, 5, 45, 255);
  const SampleCase cases[] = {
      {"whole position copies", 0.0, 0.0, {10, 0, 40, 255}},
      {"half way across blends and truncates", 0.5, 0.0, {60, 0, 40, 255}},
      {"quarter down", 0.0, 0.25, {12, 0, 40, 255}},
      {"half way down", 0.0, 0.5, {15, 1, 41, 255}},
      {"weight blends with an empty neighbour", 1.0, 0.5, {115, 2, 42, 127}},
      {"centre of four with an empty corner", 0.5, 0.5, {65, 2, 42, 191}},
      {"last column copies without blending", 2.7, 0.5, {200, 2, 42, 255}},
      {"last row copies without blending", 0.9, 1.3, {20, 3, 43, 255}},
      {"last pixel", 2.0, 1.0, {210, 5, 45, 255}},
      {"just left of column 0 is outside", -0.25, 0.0, {0, 0, 0, 0}},
      {"just above row 0 is outside", 0.0, -1e-9, {0, 0, 0, 0}},
      {"width is outside", 3.0, 0.0, {0, 0, 0, 0}},
      {"height is outside", 0.0, 2.0, {0, 0, 0, 0}},
      {"far away is outside", 1e300, -1e300, {0, 0, 0, 0}},
      {"not a number is outside", NAN, 0.0, {0, 0, 0, 0}},
  };
  for (const SampleCase& c : cases) {
    unsigned char out[4] = {9, 9, 9, 9};
    SampleBilinear(source.image, c.sx, c.sy, out);
    for (int k = 0; k < 4; k++) EXPECT_EQ(out[k], c.expected[k]) << c.name << " byte " << k;
  }
}

// ---- RotatedPatch ----

TEST(RotatedPatch, ZeroAngleFullSizeCopiesEvenRowsAndEmptiesOddRows) {
  TestPicture source = MakePicture(10, 7, 5, 3);
  FillRandom(source, 21);
  Image patch = RotatedPatch(source.image, 10, 7, 0.0f);
  ASSERT_EQ(patch.x0, 5);
  ASSERT_EQ(patch.y0, 3);
  for (int32_t y = 0; y < 7; y++)
    for (int32_t x = 0; x < 10; x++) {
      if (y % 2 == 0)
        EXPECT_TRUE(SamePixel(patch, x, y, source.image, x, y)) << x << "," << y;
      else
        EXPECT_TRUE(IsEmptyPixel(patch, x, y)) << x << "," << y;
    }
  ReleasePixels(patch);
}

TEST(RotatedPatch, QuarterPatchIsTheCentralPart) {
  TestPicture source = MakePicture(40, 28, 23, 11);
  FillRandom(source, 22);
  Image patch = RotatedPatch(source.image, 10, 7, 0.0f);
  ASSERT_EQ(patch.width, 10);
  ASSERT_EQ(patch.height, 7);
  for (int32_t y = 0; y < 7; y += 2)
    for (int32_t x = 0; x < 10; x++)
      EXPECT_TRUE(SamePixel(patch, x, y, source.image, 23 + x - 5, 11 + y - 3)) << x << "," << y;
  ReleasePixels(patch);
}

TEST(RotatedPatch, SingleRowIsSampled) {
  TestPicture source = MakePicture(8, 8, 4, 4);
  FillRandom(source, 23);
  Image patch = RotatedPatch(source.image, 5, 1, 0.0f);
  ASSERT_EQ(patch.y0, 0);
  for (int32_t x = 0; x < 5; x++)
    EXPECT_TRUE(SamePixel(patch, x, 0, source.image, 4 + x - 2, 4)) << x;
  ReleasePixels(patch);
}

TEST(RotatedPatch, PositionsLeavingTheSourceAreEmpty) {
  TestPicture source = MakePicture(4, 4, 1, 1);
  FillRandom(source, 24);
  Image patch = RotatedPatch(source.image, 9, 9, 0.0f);
  // Patch (x, y) shows source (x - 3, y - 3).
  for (int32_t y = 0; y < 9; y += 2)
    for (int32_t x = 0; x < 9; x++) {
      bool inside = x >= 3 && x < 7 && y >= 3 && y < 7;
      if (inside)
        EXPECT_TRUE(SamePixel(patch, x, y, source.image, x - 3, y - 3)) << x << "," << y;
      else
        EXPECT_TRUE(IsEmptyPixel(patch, x, y)) << x << "," << y;
    }
  ReleasePixels(patch);
}

TEST(RotatedPatch, NegativePositionsTruncateTowardZero) {
  TestPicture source = MakePicture(5, 5, 0, 0);
  FillRandom(source, 25);
  // u = -1 at angle 0 lands on column -1: outside.
  Image flat = RotatedPatch(source.image, 3, 1, 0.0f);
  EXPECT_EQ(flat.pixels[3], 0);
  EXPECT_TRUE(SamePixel(flat, 1, 0, source.image, 0, 0));
  ReleasePixels(flat);
  // A small angle puts u = -1 at (-cos, -sin): both in (-1, 0), truncated to the first pixel.
  Image turned = RotatedPatch(source.image, 3, 1, 0.2f);
  EXPECT_TRUE(SamePixel(turned, 0, 0, source.image, 0, 0));
  ReleasePixels(turned);
}

TEST(RotatedPatch, QuarterTurnGoesTheWayOfTheGeometry) {
  TestPicture source = MakePicture(9, 9, 4, 4);
  FillRandom(source, 26);
  float quarter = (float)(M_PI / 2);
  Image patch = RotatedPatch(source.image, 9, 9, quarter);
  // u = 2, v = 0 shows (C 2, S 2): C is a tiny negative float, so the column
  // truncates to 3, not 4; the row is 4 + 2.
  EXPECT_LT((float)cos((double)quarter), 0.0f);
  EXPECT_TRUE(SamePixel(patch, 6, 4, source.image, 3, 6));
  ReleasePixels(patch);
}

// At this angle sinf differs from the double sine rounded to float by one unit
// in the last place, which at u = -740 moves the row across a whole number.
TEST(RotatedPatch, SineIsTheDoubleSineRoundedToFloat) {
  TestPicture source = MakePicture(2000, 200, 1000, 100);
  for (int32_t y = 0; y < 200; y++)
    for (int32_t x = 0; x < 2000; x++)
      SetPixel(source, x, y, (unsigned char)x, (unsigned char)(x >> 8), (unsigned char)y, 255);
  float theta = 0.071682997f;
  Image patch = RotatedPatch(source.image, 2000, 1, theta);
  double sy = 100.0 + (double)(float)sin((double)theta) * -740.0;
  ASSERT_EQ(trunc(sy), 47.0);
  const unsigned char* p = PixelAt(patch, 1000 - 740, 0);
  EXPECT_EQ(p[0] + 256 * p[1], 261);
  EXPECT_EQ(p[2], 47);
  ReleasePixels(patch);
}

// ---- ScaleImage ----

TEST(ScaleImage, EighthIsAPlainDecimation) {
  TestPicture source = MakePicture(803, 600, 401, 300);
  FillRandom(source, 31);
  Image copy = ScaleImage(source.image, 0.125f);
  ASSERT_EQ(copy.width, 100);
  ASSERT_EQ(copy.height, 75);
  EXPECT_EQ(copy.x0, 50);
  EXPECT_EQ(copy.y0, 37);
  int mismatches = 0;
  for (int32_t y = 0; y < 75; y++)
    for (int32_t x = 0; x < 100; x++)
      if (!SamePixel(copy, x, y, source.image, 8 * x, 8 * y)) mismatches++;
  EXPECT_EQ(mismatches, 0);
  ReleasePixels(copy);
}

TEST(ScaleImage, NarrowSourceGivesAnEmptyCopy) {
  TestPicture source = MakePicture(7, 16, 3, 8);
  FillRandom(source, 32);
  Image copy = ScaleImage(source.image, 0.125f);
  EXPECT_EQ(copy.width, 0);
  EXPECT_EQ(copy.height, 2);
  EXPECT_EQ(copy.x0, 0);
  EXPECT_EQ(copy.y0, 1);
  ReleasePixels(copy);
}

TEST(ScaleImage, FactorOneIsAnIdentity) {
  TestPicture source = MakePicture(9, 6, -2, 7);
  FillRandom(source, 33);
  Image copy = ScaleImage(source.image, 1.0f);
  ASSERT_EQ(copy.width, 9);
  ASSERT_EQ(copy.height, 6);
  EXPECT_EQ(copy.x0, -2);
  EXPECT_EQ(copy.y0, 7);
  EXPECT_EQ(memcmp(copy.pixels, source.bytes.data(), source.bytes.size()), 0);
  ReleasePixels(copy);
}

TEST(ScaleImage, HalfTakesEverySecondPixel) {
  TestPicture source = MakePicture(9, 7, 5, -3);
  FillRandom(source, 34);
  Image copy = ScaleImage(source.image, 0.5f);
  ASSERT_EQ(copy.width, 4);
  ASSERT_EQ(copy.height, 3);
  EXPECT_EQ(copy.x0, 2);
  EXPECT_EQ(copy.y0, -1);  // truncated toward zero
  for (int32_t y = 0; y < 3; y++)
    for (int32_t x = 0; x < 4; x++)
      EXPECT_TRUE(SamePixel(copy, x, y, source.image, 2 * x, 2 * y)) << x << "," << y;
  ReleasePixels(copy);
}

TEST(ScaleImage, EnlargingBlendsInsideAndCopiesTheLastColumn) {
  TestPicture source = MakePicture(2, 2, 1, 1);
  SetPixel(source, 0, 0, 10, 0, 0, 255);
  SetPixel(source, 1, 0, 21, 0, 0, 255);
  SetPixel(source, 0, 1, 30, 0, 0, 255);
  SetPixel(source, 1, 1, 41, 0, 0, 255);
  Image copy = ScaleImage(source.image, 2.0f);
  ASSERT_EQ(copy.width, 4);
  ASSERT_EQ(copy.height, 4);
  EXPECT_EQ(copy.x0, 2);
  EXPECT_EQ(PixelAt(copy, 1, 0)[0], 15);  // 10 * 0.5 + 21 * 0.5 = 15.5
  EXPECT_EQ(PixelAt(copy, 1, 1)[0], 25);  // (10 + 21 + 30 + 41) / 4 = 25.5
  EXPECT_EQ(PixelAt(copy, 3, 0)[0], 21);  // column 1.5 is in the last column
  EXPECT_EQ(PixelAt(copy, 0, 3)[0], 30);  // row 1.5 is in the last row
  ReleasePixels(copy);
}

}  // namespace
