#include <gtest/gtest.h>

#include "register/register.h"
#include "test_pictures.h"

namespace {

const double K = (double)(1.0f / 255.0f);

struct PairCase {
  const char* name;
  unsigned char b1, g1, r1, w1;
  unsigned char b2, g2, r2, w2;
  double expected;
};

TEST(MatchScore, SinglePairContributions) {
  const PairCase cases[] = {
      {"identical", 10, 20, 30, 255, 10, 20, 30, 255, 0.0},
      {"blue differs by 1", 10, 20, 30, 255, 11, 20, 30, 255, 1.0 * K + 1.0},
      {"green differs by 1", 10, 20, 30, 255, 10, 21, 30, 255, 16.0 * K + 4.0},
      {"red differs by 1", 10, 20, 30, 255, 10, 20, 29, 255, 16.0 * K + 4.0},
      {"all differ by 255", 0, 0, 0, 255, 255, 255, 255, 255, 585225.0 * 585225.0 * K + 585225.0},
      {"interpolated weight counts as data", 0, 0, 0, 127, 1, 0, 0, 1, 1.0 * K + 1.0},
      {"first empty", 0, 0, 0, 0, 255, 255, 255, 255, (double)(0.5f * 0.01f)},
      {"second empty", 0, 0, 0, 255, 9, 9, 9, 0, (double)(0.5f * 0.01f)},
  };
  for (const PairCase& c : cases) {
    TestPicture a = MakePicture(1, 1, 0, 0);
    TestPicture b = MakePicture(1, 1, 0, 0);
    SetPixel(a, 0, 0, c.b1, c.g1, c.r1, c.w1);
    SetPixel(b, 0, 0, c.b2, c.g2, c.r2, c.w2);
    EXPECT_EQ(MatchScore(a.image, b.image), c.expected) << c.name;
    EXPECT_EQ(MatchScore(b.image, a.image), c.expected) << c.name << " (swapped)";
  }
}

TEST(MatchScore, NoOverlapScoresTheFixedValue) {
  TestPicture a = MakePicture(4, 3, 0, 0);
  TestPicture b = MakePicture(5, 2, 0, 0);
  Fill(a, 1, 2, 3, 255);
  Fill(b, 1, 2, 3, 255);
  const int32_t placements[][4] = {
      {4, 0, 0, 0},    // a.x0 - b.x0 == a.width
      {0, 0, 5, 0},    // b shifted past a's right edge
      {0, 3, 0, 0},    // rows: a.y0 - b.y0 == a.height
      {0, 0, 0, 2},    // b.height rows above a
      {-100, 0, 0, 0}, // far away
  };
  for (const auto& p : placements) {
    a.image.x0 = p[0];
    a.image.y0 = p[1];
    b.image.x0 = p[2];
    b.image.y0 = p[3];
    EXPECT_EQ(MatchScore(a.image, b.image), (double)0.05f);
    EXPECT_EQ(MatchScore(b.image, a.image), (double)0.05f);
  }
  TestPicture empty = MakePicture(0, 0, 0, 0);
  EXPECT_EQ(MatchScore(empty.image, b.image), (double)0.05f);
}

TEST(MatchScore, PlacementPairsThroughReferencePoints) {
  // a is a horizontal ramp; moving a's x0 by +1 pairs each a pixel with the b
  // pixel one column to the left of its former partner.
  TestPicture a = MakePicture(6, 2, 0, 0);
  TestPicture b = MakePicture(6, 2, 0, 0);
  for (int y = 0; y < 2; y++)
    for (int x = 0; x < 6; x++) {
      SetPixel(a, x, y, (unsigned char)(10 * x), 0, 0, 255);
      SetPixel(b, x, y, (unsigned char)(10 * x), 0, 0, 255);
    }
  EXPECT_EQ(MatchScore(a.image, b.image), 0.0);
  a.image.x0 = 1;  // a's column x faces b's column x - 1: difference 10 in blue
  double v = 100.0;
  EXPECT_EQ(MatchScore(a.image, b.image), (10 * v * v * K + 10 * v) / 10.0);
  EXPECT_EQ(MatchScore(b.image, a.image), MatchScore(a.image, b.image));
}

TEST(MatchScore, SumIsExactWhateverTheOrderOfPairs) {
  // Two pictures holding the same multiset of pairs in different orders give
  // the same bits: the sums are integers.
  uint32_t seed = 12345;
  TestPicture a = MakePicture(37, 11, 3, 4);
  TestPicture b = MakePicture(37, 11, 3, 4);
  for (int y = 0; y < 11; y++)
    for (int x = 0; x < 37; x++) {
      SetPixel(a, x, y, (unsigned char)NextRandom(seed), (unsigned char)NextRandom(seed),
               (unsigned char)NextRandom(seed), (unsigned char)(NextRandom(seed) % 4 == 0 ? 0 : 255));
      SetPixel(b, x, y, (unsigned char)NextRandom(seed), (unsigned char)NextRandom(seed),
               (unsigned char)NextRandom(seed), 255);
    }
  TestPicture ra = MakePicture(37, 11, 3, 4);
  TestPicture rb = MakePicture(37, 11, 3, 4);
  for (size_t i = 0; i < (size_t)37 * 11; i++)
    for (int c = 0; c < 4; c++) {
      ra.bytes[(37 * 11 - 1 - i) * 4 + c] = a.bytes[i * 4 + c];
      rb.bytes[(37 * 11 - 1 - i) * 4 + c] = b.bytes[i * 4 + c];
    }
  EXPECT_EQ(MatchScore(a.image, b.image), MatchScore(ra.image, rb.image));
}

}  // namespace
