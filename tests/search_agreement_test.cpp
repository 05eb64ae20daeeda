// The fast searches against the straightforward ones: same winner, same best
// float, same bytes, on every kernel level and with one and two threads.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "blocks/blocks.h"
#include "console_capture.h"
#include "register/kernels.h"
#include "register/register.h"
#include "register/selection_rule.h"
#include "register/shift_scan.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

#ifdef _OPENMP
#include <omp.h>
#endif

namespace {

const uint32_t SEED = 20261124;

void SetThreads(int threads) {
#ifdef _OPENMP
  omp_set_num_threads(threads);
#else
  (void)threads;
#endif
}

// Picture kinds where many placements tie exactly, and noisy ones.
enum Pattern { NOISE, CONSTANT, STRIPES, CHECKER, SPARSE_EMPTY, PATTERNS };

TestPicture Make(Pattern pattern, int32_t w, int32_t h, uint32_t& state) {
  TestPicture picture = MakePicture(w, h, (int32_t)(NextRandom(state) % (w + 1)),
                                    (int32_t)(NextRandom(state) % (h + 1)));
  for (int32_t y = 0; y < h; y++)
    for (int32_t x = 0; x < w; x++) {
      unsigned char v = (unsigned char)(NextRandom(state) % 256);
      unsigned char weight = 255;
      if (pattern == CONSTANT) v = 90;
      if (pattern == STRIPES) v = x % 3 == 0 ? 200 : 10;
      if (pattern == CHECKER) v = (x + y) % 2 == 0 ? 255 : 0;
      if (pattern == SPARSE_EMPTY && NextRandom(state) % 5 == 0) weight = 0;
      SetPixel(picture, x, y, v, (unsigned char)(v / 2), (unsigned char)(255 - v), weight);
    }
  return picture;
}

std::vector<int> Levels() {
  std::vector<int> levels;
  for (int level = KERNEL_SSE2; level <= KERNEL_AVX2; level++)
    if (KernelLevelAvailable(level)) levels.push_back(level);
  return levels;
}

TEST(SearchAgreement, ShiftScanFindsTheReferenceWinner) {
  uint32_t state = SEED;
  for (int round = 0; round < 300; round++) {
    Pattern pattern = (Pattern)(round % PATTERNS);
    TestPicture fixed = Make(pattern, 1 + NextRandom(state) % 40, 1 + NextRandom(state) % 30, state);
    TestPicture moving = Make(pattern, 1 + NextRandom(state) % 24, 1 + NextRandom(state) % 20, state);
    int64_t minX = (int64_t)(NextRandom(state) % 61) - 40, minY = (int64_t)(NextRandom(state) % 61) - 40;
    ShiftGrid grid = {minX, minX + (int64_t)(NextRandom(state) % 50) - 5, minY,
                      minY + (int64_t)(NextRandom(state) % 50) - 5, 1 + NextRandom(state) % 3};
    // Two scans in a row share a memory, as the angles of one search do.
    ShiftWinner expected = {1e24f, 0, 0, false};
    ScanShiftsReference(moving.image, fixed.image, grid, expected);
    ScanShiftsReference(fixed.image, fixed.image, grid, expected);
    for (int level : Levels())
      for (int threads = 1; threads <= 2; threads++) {
        ASSERT_TRUE(ForceKernelLevel(level));
        SetThreads(threads);
        ShiftWinner got = {1e24f, 0, 0, false};
        ScanMemory memory = NewScanMemory();
        // Odd rounds seed the bound from both pictures first, as the
        // rotation search does from all its angles.
        const Image movings[2] = {moving.image, fixed.image};
        if (round % 2 == 1) SeedScanMemory(movings, 2, fixed.image, grid, memory);
        ScanShiftsFast(moving.image, fixed.image, grid, got, memory);
        ScanShiftsFast(fixed.image, fixed.image, grid, got, memory);
        EXPECT_TRUE(got.score == expected.score && got.dx == expected.dx && got.dy == expected.dy)
            << "seed " << SEED << " round " << round << " level " << level << " threads "
            << threads << ": " << got.score << " (" << got.dx << "," << got.dy << ") vs "
            << expected.score << " (" << expected.dx << "," << expected.dy << ")";
      }
  }
  ForceKernelLevel(KERNEL_REFERENCE);
}

TEST(SearchAgreement, RotatedScoreAndResamplingMatchTheReference) {
  uint32_t state = SEED + 1;
  const float angles[] = {0.0f, 0.0174533f, -0.0523599f, 0.7f, -1.5707964f, 0.071682997f};
  for (int round = 0; round < 60; round++) {
    TestPicture source = Make((Pattern)(round % PATTERNS), 1 + NextRandom(state) % 50,
                              1 + NextRandom(state) % 40, state);
    TestPicture fixed = Make(NOISE, 1 + NextRandom(state) % 50, 1 + NextRandom(state) % 40, state);
    float angle = angles[round % 6];
    int32_t w = (int32_t)(NextRandom(state) % 60), h = (int32_t)(NextRandom(state) % 50);
    float dx = (float)((int)(NextRandom(state) % 9) - 4), dy = (float)((int)(NextRandom(state) % 9) - 4);
    float factor = round % 2 == 0 ? 0.125f : 0.5f;

    ForceKernelLevel(KERNEL_REFERENCE);
    Image patch = RotatedPatch(source.image, w, h, angle);
    double expectedScore = MatchScore(patch, fixed.image);
    ReleasePixels(patch);
    Image expectedTurned = TransformImage(source.image, angle, dx, dy);
    Image expectedScaled = ScaleImage(source.image, factor);
    for (int level : Levels())
      for (int threads = 1; threads <= 2; threads++) {
        ASSERT_TRUE(ForceKernelLevel(level));
        SetThreads(threads);
        std::string where = "seed " + std::to_string(SEED + 1) + " round " + std::to_string(round) +
                            " level " + std::to_string(level) + " threads " + std::to_string(threads);
        EXPECT_EQ(RotatedPatchScore(source.image, w, h, angle, fixed.image, INFINITY), expectedScore) << where;
        double limit = expectedScore * (round % 3) / 2;  // below, at and above the score
        double bounded = RotatedPatchScore(source.image, w, h, angle, fixed.image, limit);
        EXPECT_TRUE(expectedScore >= limit ? bounded >= limit : bounded == expectedScore) << where;
        Image turned = TransformImage(source.image, angle, dx, dy);
        Image scaled = ScaleImage(source.image, factor);
        ASSERT_EQ(turned.width, expectedTurned.width) << where;
        ASSERT_EQ(turned.height, expectedTurned.height) << where;
        EXPECT_EQ(memcmp(turned.pixels, expectedTurned.pixels, (size_t)turned.width * turned.height * 4), 0) << where;
        EXPECT_EQ(memcmp(scaled.pixels, expectedScaled.pixels, (size_t)scaled.width * scaled.height * 4), 0) << where;
        ReleasePixels(turned);
        ReleasePixels(scaled);
      }
    ReleasePixels(expectedTurned);
    ReleasePixels(expectedScaled);
  }
  ForceKernelLevel(KERNEL_REFERENCE);
}

// A picture in a buffer of its own, as the block stage releases and replaces it.
Image Owned(const TestPicture& picture) {
  Image image = picture.image;
  size_t bytes = picture.bytes.size();
  image.pixels = AllocatePixels(image.width, image.height);
  if (bytes > 0) memcpy(image.pixels, picture.bytes.data(), bytes);
  return image;
}

struct StageResult {
  std::string console;
  std::vector<unsigned char> current;
  std::vector<unsigned char> reference;
};

StageResult RunStage(const Image& current, const Image& reference) {
  Current = Owned(TestPicture{std::vector<unsigned char>(current.pixels, current.pixels + (size_t)current.width * current.height * 4), current});
  Reference = Owned(TestPicture{std::vector<unsigned char>(reference.pixels, reference.pixels + (size_t)reference.width * reference.height * 4), reference});
  ConsoleCapture capture = BeginCapture();
  AdjustBlocks();
  StageResult result;
  result.console = EndCapture(capture);
  result.current.assign(Current.pixels, Current.pixels + (size_t)Current.width * Current.height * 4);
  result.reference.assign(Reference.pixels, Reference.pixels + (size_t)Reference.width * Reference.height * 4);
  ReleasePixels(Current);
  ReleasePixels(Reference);
  return result;
}

// The whole block stage, every kind of step, widths and ranges, including
// ranges that skip blocks and flat pictures where every trial ties.
TEST(SearchAgreement, BlockStageGivesTheReferenceBytes) {
  uint32_t state = SEED + 3;
  const float steps[] = {1.0f, 2.0f, 0.5f, 0.25f, 0.3f, 1.5f};
  for (int round = 0; round < 48; round++) {
    Pattern pattern = (Pattern)(round % PATTERNS);
    int32_t w = 12 + NextRandom(state) % 60, h = 12 + NextRandom(state) % 50;
    TestPicture reference = Make(pattern, w, h, state);
    TestPicture current = Make(round % 3 == 0 ? pattern : NOISE, w + NextRandom(state) % 7 - 3,
                               h + NextRandom(state) % 7 - 3, state);
    Settings = SettingsRecord{};
    Settings.GridWidth = 3 + NextRandom(state) % 12;
    Settings.SearchWidth = NextRandom(state) % 9;
    int32_t range = NextRandom(state) % 4;
    Settings.BlockShiftMinX = Settings.BlockShiftMinY = -range;
    Settings.BlockShiftMaxX = Settings.BlockShiftMaxY = range;
    Settings.BlockShiftStep = steps[round % 6];
    ForceKernelLevel(KERNEL_REFERENCE);
    StageResult expected = RunStage(current.image, reference.image);
    for (int level : Levels())
      for (int threads = 1; threads <= 2; threads++) {
        ASSERT_TRUE(ForceKernelLevel(level));
        SetThreads(threads);
        StageResult got = RunStage(current.image, reference.image);
        std::string where = "seed " + std::to_string(SEED + 3) + " round " + std::to_string(round) +
                            " level " + std::to_string(level) + " threads " + std::to_string(threads);
        EXPECT_EQ(got.console, expected.console) << where;
        EXPECT_TRUE(got.current == expected.current) << where;
        EXPECT_TRUE(got.reference == expected.reference) << where;
      }
  }
  ForceKernelLevel(KERNEL_REFERENCE);
  Settings = SettingsRecord{};
}

// Scores that sit on both sides of float boundaries: the rule's winner is
// found again after leaving out every candidate that the bound of any
// completed score allows to abandon.
TEST(SelectionRule, AbandonedCandidatesNeverChangeTheWinner) {
  uint32_t state = SEED + 2;
  for (int round = 0; round < 2000; round++) {
    double base = 1.0 + (NextRandom(state) % 1000) / 7.0;
    float anchor = (float)base;
    std::vector<double> scores(2 + NextRandom(state) % 12);
    for (double& score : scores) {
      // The anchor float, its neighbours, and doubles just above, at and below them.
      float f = anchor;
      for (int k = (int)(NextRandom(state) % 5); k > 0; k--) f = std::nextafter(f, INFINITY);
      double ulp = (double)std::nextafter(f, INFINITY) - f;
      score = (double)f + ulp * ((int)(NextRandom(state) % 9) - 4) / 4.0;
    }
    auto winner = [](const std::vector<double>& list, float& best) {
      best = 1e24f;
      int index = -1;
      for (size_t i = 0; i < list.size(); i++)
        if (TakeIfBetter(best, list[i])) index = (int)i;
      return index;
    };
    float best = 0;
    int expected = winner(scores, best);
    for (double m : scores) {
      std::vector<double> pruned = scores;
      for (double& score : pruned)
        if (score >= AbandonBound(m)) score = ABANDONED_SCORE;
      float prunedBest = 0;
      ASSERT_EQ(winner(pruned, prunedBest), expected) << "seed " << SEED + 2 << " round " << round;
      ASSERT_EQ(prunedBest, best);
    }
  }
}

TEST(SelectionRule, EqualFloatsAndTheRoundingOfTheBest) {
  float one = 1.0f;
  double above = (double)std::nextafter(one, INFINITY);
  double ulp = above - 1.0;
  struct Case {
    const char* name;
    std::vector<double> scores;
    int winner;
  } cases[] = {
      {"equal doubles on a float keep the first", {1.0, 1.0}, 0},
      {"equal doubles rounding down keep the first", {1.0 + ulp / 4, 1.0 + ulp / 4}, 0},
      {"equal doubles rounding up: the later wins", {1.0 + 3 * ulp / 4, 1.0 + 3 * ulp / 4}, 1},
      {"a higher double below the held float wins", {1.0 + 3 * ulp / 4, 1.0 + 7 * ulp / 8}, 1},
      {"a score at the next float does not win", {1.0, above}, 0},
  };
  for (const Case& c : cases) {
    float best = 1e24f;
    int index = -1;
    for (size_t i = 0; i < c.scores.size(); i++)
      if (TakeIfBetter(best, c.scores[i])) index = (int)i;
    EXPECT_EQ(index, c.winner) << c.name;
  }
  EXPECT_EQ(AbandonBound(1.0), std::nextafter(one, INFINITY));
  EXPECT_EQ(AbandonBound(1.0 + 1e-9), std::nextafter(one, INFINITY));
  EXPECT_EQ(AbandonBound(above - 1e-12), (float)above);
}

}  // namespace
