#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "blocks/blocks.h"
#include "console_capture.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

namespace {

const float EMPTY_PAIR = 0.5f * 0.01f;

void SetRange(int32_t search, int32_t minX, int32_t maxX, int32_t minY, int32_t maxY, float step) {
  Settings.SearchWidth = search;
  Settings.BlockShiftMinX = minX;
  Settings.BlockShiftMaxX = maxX;
  Settings.BlockShiftMinY = minY;
  Settings.BlockShiftMaxY = maxY;
  Settings.BlockShiftStep = step;
}

struct Found {
  float dx, dy, score;
};

Found Search(bool subpixel, int32_t bx, int32_t by) {
  Found f = {99, 99, 0};
  f.score = subpixel ? SearchBlockOffsetSubpixel(f.dx, f.dy, bx, by) : SearchBlockOffset(f.dx, f.dy, bx, by);
  return f;
}

// A picture in a buffer from AllocatePixels, as AdjustBlocks releases it.
Image AllocatedFlat(int32_t width, int32_t height, int32_t x0, int32_t y0, unsigned char grey) {
  Image image = {AllocatePixels(width, height), width, height, x0, y0};
  memset(image.pixels, grey, (size_t)width * height * 4);
  for (int64_t i = 3; i < (int64_t)width * height * 4; i += 4) image.pixels[i] = 255;
  return image;
}

std::string RunAdjustBlocks(int32_t grid) {
  Settings.GridWidth = grid;
  ConsoleCapture capture = BeginCapture();
  AdjustBlocks();
  return EndCapture(capture);
}

std::string Printed(int columns, int rows, int stars) {
  char line[100];
  snprintf(line, sizeof line, " (%i blocs en largeur %i blocs en hauteur)\n", columns, rows);
  return "Ajustage par blocs\nCalcul du meilleur ajustage" + std::string(line) +
         "--------------------------------------------------\n" + std::string(stars, '*') +
         "\nDeformation de l'image\n";
}

// Grey 128 makes a gradient form of 128 in every byte, frame included: every
// trial of a searched block scores 0 and the first, (-5, -5), wins, while a
// skipped block keeps (0, 0). One row of blocks (y = 16); output row 39 shows
// which: moved up by 5 it is empty. Columns 0 and 18 hold for x <= 16 and
// x >= 592.
TEST(AdjustBlocksGrid, Width640Grid32Search10Shift5HasNineteenColumnsAt16To592) {
  struct GridCase {
    const char* name;
    int32_t referenceWidth, referenceHeight, dx0, dy0;
    bool firstSearched, lastSearched;
  };
  const GridCase cases[] = {
      {"all inside", 640, 40, 0, 0, true, true},
      {"right test equal to width is searched", 607, 40, 0, 0, true, true},
      {"right test one past width is skipped", 606, 40, 0, 0, true, false},
      {"left test at 0 is searched", 640, 40, -1, 0, true, true},
      {"left test at -1 is skipped", 640, 40, -2, 0, false, true},
      {"bottom test equal to height is searched", 640, 31, 0, 0, true, true},
      {"bottom test one past height is skipped", 640, 30, 0, 0, false, false},
      {"top test at 0 is searched", 640, 40, 0, -1, true, true},
      {"top test at -1 is skipped", 640, 40, 0, -2, false, false},
  };
  for (const GridCase& c : cases) {
    SetRange(10, -5, 5, -5, 5, 1.0f);
    Current = AllocatedFlat(640, 40, 320, 20, 128);
    Reference = AllocatedFlat(c.referenceWidth, c.referenceHeight, 320 + c.dx0, 20 + c.dy0, 128);
    // 48 stars: floor(50 x 18 / 19) + 1.
    EXPECT_EQ(RunAdjustBlocks(32), Printed(19, 1, 48)) << c.name;
    EXPECT_EQ(Current.pixels[(39 * 640 + 0) * 4 + 3], c.firstSearched ? 0 : 255) << c.name;
    EXPECT_EQ(Current.pixels[(39 * 640 + 600) * 4 + 3], c.lastSearched ? 0 : 255) << c.name;
    ReleasePixels(Current);
    ReleasePixels(Reference);
  }
}

// Width columns + 2 with G 1, S 0, M 0 puts a block at x = 1, 2, ...
TEST(AdjustBlocksGrid, StarBarEndsAtFloorOf50TimesLastColumnOverColumnsPlusOne) {
  const int cases[][2] = {{1, 1}, {2, 26}, {3, 34}, {5, 41}, {49, 49}, {51, 50}, {100, 50}};
  for (const auto& c : cases) {
    SetRange(0, 0, 0, 0, 0, 1.0f);
    Current = AllocatedFlat(c[0] + 2, 3, 0, 0, 50);
    Reference = AllocatedFlat(c[0] + 2, 3, 0, 0, 50);
    EXPECT_EQ(RunAdjustBlocks(1), Printed(c[0], 1, c[1])) << c[0] << " columns";
    ReleasePixels(Current);
    ReleasePixels(Reference);
  }
}

// One block at (6, 6), S 1, M 4. Reference shows Current's random content
// moved by -4 in columns up to 4 and by +4 from column 5 on. The whole-number
// search compares the square centred on the block point (at -4: columns 1..3)
// and finds -4 first; the fractional one compares columns 6..8 at every
// offset and finds +4, or with a step of 1.5, which never reaches 4, neither.
TEST(AdjustBlocksVariant, WholeStepSelectsTheWholeNumberSearch) {
  const struct {
    float step;
    int32_t shift;  // 0: neither -4 nor +4
  } cases[] = {{1.0f, -4}, {2.0f, -4}, {0.5f, 4}, {1.5f, 0}};
  const uint32_t seed = 8080u;
  printf("seed %u\n", seed);
  for (const auto& c : cases) {
    uint32_t state = seed;
    Current = AllocatedFlat(20, 14, 10, 7, 0);
    Reference = AllocatedFlat(20, 14, 10, 7, 0);
    for (int32_t i = 0; i < 20 * 14 * 4; i++)
      if (i % 4 != 3) Current.pixels[i] = (unsigned char)NextRandom(state);
    for (int32_t i = 0; i < 20 * 14; i++) {
      int32_t from = i % 20 <= 4 ? i + 4 : i - 4;
      memcpy(&Reference.pixels[i * 4], &Current.pixels[from * 4], 4);
    }
    std::string before(Current.pixels, Current.pixels + 20 * 14 * 4);
    SetRange(1, -4, 4, -4, 4, c.step);
    EXPECT_EQ(RunAdjustBlocks(1000), Printed(1, 1, 1));
    // The one block's offset moves the whole picture; columns 4..15 stay
    // inside under both shifts.
    bool movedLeft = true;
    bool movedRight = true;
    for (int32_t y = 0; y < 14; y++) {
      for (int32_t x = 4; x < 16; x++) {
        const char* now = (const char*)&Current.pixels[(y * 20 + x) * 4];
        movedLeft = movedLeft && before.compare((y * 20 + x + 4) * 4, 4, now, 4) == 0;
        movedRight = movedRight && before.compare((y * 20 + x - 4) * 4, 4, now, 4) == 0;
      }
    }
    EXPECT_EQ(movedLeft, c.shift == -4) << "step " << c.step;
    EXPECT_EQ(movedRight, c.shift == 4) << "step " << c.step;
    ReleasePixels(Current);
    ReleasePixels(Reference);
  }
}

// Random texture; Reference shows Current's content moved by a whole offset,
// the centres 5 and -3 apart as well.
TEST(BlockSearchWhole, FindsAKnownDisplacementAcrossTheRange) {
  const int32_t moves[][2] = {{3, -2}, {0, 0}, {-5, -5}, {5, 5}, {-5, 4}};
  const uint32_t seed = 4242u;
  printf("seed %u\n", seed);
  uint32_t state = seed;
  for (const auto& move : moves) {
    TestPicture current = MakePicture(40, 40, 20, 20);
    TestPicture reference = MakePicture(40, 40, 25, 17);
    for (unsigned char& byte : current.bytes) byte = (unsigned char)(NextRandom(state) | 1);
    for (unsigned char& byte : reference.bytes) byte = (unsigned char)(NextRandom(state) | 1);
    for (int32_t y = 0; y < 40; y++) {
      for (int32_t x = 0; x < 40; x++) {
        int32_t sx = x - 5 - move[0];
        int32_t sy = y + 3 - move[1];
        if (sx >= 0 && sx < 40 && sy >= 0 && sy < 40)
          memcpy(&reference.bytes[(y * 40 + x) * 4], &current.bytes[(sy * 40 + sx) * 4], 4);
      }
    }
    Current = current.image;
    Reference = reference.image;
    SetRange(4, -5, 5, -5, 5, 1.0f);
    Found f = Search(false, 15, 18);
    EXPECT_EQ(f.dx, (float)move[0]) << move[0] << "," << move[1];
    EXPECT_EQ(f.dy, (float)move[1]) << move[0] << "," << move[1];
    EXPECT_EQ(f.score, 0.0f) << move[0] << "," << move[1];
  }
}

TEST(BlockSearchWhole, PatchPixelsOutsideCurrentAreEmpty) {
  TestPicture current = MakePicture(5, 5, 0, 0);
  TestPicture reference = MakePicture(5, 5, 2, 0);
  Fill(current, 7, 7, 7, 255);
  Fill(reference, 7, 7, 7, 255);
  Current = current.image;
  Reference = reference.image;
  SetRange(2, 0, 0, 0, 0, 1.0f);
  // Block at x = 0: patch columns -2 and -1 are empty, 10 pairs of 25.
  EXPECT_EQ(Search(false, 0, 2).score, (float)(10 * (double)EMPTY_PAIR / 25));
}

TEST(BlockSearch, TiesGoToTheFirstTrial) {
  TestPicture flat = MakePicture(30, 30, 15, 15);
  Fill(flat, 128, 128, 128, 255);
  Current = flat.image;
  Reference = flat.image;
  SetRange(3, -4, 4, -3, 3, 1.0f);
  Found f = Search(false, 15, 15);
  EXPECT_EQ(f.dx, -4.0f);
  EXPECT_EQ(f.dy, -3.0f);
  EXPECT_EQ(f.score, 0.0f);
  SetRange(3, -2, 2, -1, 1, 0.5f);
  f = Search(true, 12, 12);
  EXPECT_EQ(f.dx, -2.0f);
  EXPECT_EQ(f.dy, -1.0f);
  EXPECT_EQ(f.score, 0.0f);
}

TEST(BlockSearch, NoTrialLeavesZeroOffsetAndNoMatchScore) {
  TestPicture picture = MakePicture(20, 20, 10, 10);
  Fill(picture, 1, 2, 3, 255);
  Current = picture.image;
  Reference = picture.image;
  const int32_t ranges[][4] = {{2, -2, 2, -2}, {0, 0, 1, 0}, {1, 0, 0, 0}};
  for (const auto& r : ranges) {
    for (bool subpixel : {false, true}) {
      SetRange(2, r[0], r[1], r[2], r[3], subpixel ? 0.5f : 1.0f);
      Found f = Search(subpixel, 10, 10);
      EXPECT_EQ(f.score, NO_MATCH_SCORE);
      EXPECT_EQ(f.dx, 0.0f);
      EXPECT_EQ(f.dy, 0.0f);
    }
  }
}

// Blue 4 x and green 4 y: sampled half a pixel left and half a pixel down
// they give 4 x - 2 and 4 y + 2 exactly, the extrapolated first column too.
TEST(BlockSearchSubpixel, FindsAHalfPixelDisplacement) {
  TestPicture current = MakePicture(30, 20, 10, 10);
  TestPicture reference = MakePicture(30, 20, 13, 12);
  for (int32_t y = 0; y < 20; y++) {
    for (int32_t x = 0; x < 30; x++) {
      SetPixel(current, x, y, (unsigned char)(4 * x), (unsigned char)(4 * y), 100, 255);
      SetPixel(reference, x, y, (unsigned char)(4 * (x - 3) - 2), (unsigned char)(4 * (y - 2) + 2), 100, 255);
    }
  }
  Current = current.image;
  Reference = reference.image;
  SetRange(3, -1, 1, -1, 1, 0.5f);
  Found f = Search(true, 8, 6);
  EXPECT_EQ(f.dx, 0.5f);
  EXPECT_EQ(f.dy, -0.5f);
  EXPECT_EQ(f.score, 0.0f);
}

// Ramp of 20 per pixel, Reference moved by exactly 1: the closer a trial
// comes to 1 the lower its score, so the last value tried wins. From -1 by
// 0.25 that is 1 itself, the ninth; by 0.1 the twentieth float sum, just
// above 0.9, since the next one passes 1.
TEST(BlockSearchSubpixel, RunningOffsetIsA32BitFloatSum) {
  float twentieth = -1.0f;
  for (int n = 1; n < 20; n++) twentieth += 0.1f;
  ASSERT_GT(twentieth + 0.1f, 1.0f);
  ASSERT_NEAR(twentieth, 0.9f, 1e-6);
  const struct {
    float step;
    bool down;
    float last;
  } cases[] = {{0.25f, false, 1.0f}, {0.25f, true, 1.0f}, {0.1f, false, twentieth}, {0.1f, true, twentieth}};
  for (const auto& c : cases) {
    TestPicture current = MakePicture(13, 13, 0, 0);
    TestPicture reference = MakePicture(13, 13, 0, 0);
    for (int32_t y = 0; y < 13; y++) {
      for (int32_t x = 0; x < 13; x++) {
        int32_t a = c.down ? y : x;
        unsigned char moved = (unsigned char)(a == 0 ? 0 : 20 * (a - 1));
        SetPixel(current, x, y, c.down ? 0 : (unsigned char)(20 * a), c.down ? (unsigned char)(20 * a) : 0, 0, 255);
        SetPixel(reference, x, y, c.down ? 0 : moved, c.down ? moved : 0, 0, 255);
      }
    }
    Current = current.image;
    Reference = reference.image;
    SetRange(2, c.down ? 0 : -1, c.down ? 0 : 1, c.down ? -1 : 0, c.down ? 1 : 0, c.step);
    Found f = Search(true, 4, 4);
    EXPECT_EQ(c.down ? f.dy : f.dx, c.last) << "step " << c.step << " down " << c.down;
    EXPECT_EQ(c.down ? f.dx : f.dy, 0.0f);
    EXPECT_EQ(f.score == 0.0f, c.last == 1.0f);
  }
}

// S 0 and trials 0, 0.5, 1: the 1 x 1 Reference holds what the 0.5 trial
// must sample, 1.5 P(bx) - 0.5 P(bx + 1) truncated, of which the low 8 bits.
TEST(BlockSearchSubpixel, ExtrapolatedBlendKeepsTheLowEightBits) {
  const unsigned char cases[][3] = {{250, 10, 114}, {10, 250, 146}, {255, 0, 126}, {100, 60, 120}};
  for (const auto& c : cases) {
    TestPicture current = MakePicture(4, 2, 1, 0);
    Fill(current, 3, 40, 40, 255);
    SetPixel(current, 1, 0, c[0], 40, 40, 255);
    SetPixel(current, 2, 0, c[1], 40, 40, 255);
    TestPicture reference = MakePicture(1, 1, 0, 0);
    SetPixel(reference, 0, 0, c[2], 40, 40, 255);
    Current = current.image;
    Reference = reference.image;
    SetRange(0, 0, 1, 0, 0, 0.5f);
    Found f = Search(true, 1, 0);
    EXPECT_EQ(f.dx, 0.5f) << (int)c[0] << " and " << (int)c[1];
    EXPECT_EQ(f.score, 0.0f) << (int)c[0] << " and " << (int)c[1];
  }
}

// A 1 x 1 patch facing Reference's only pixel, sampled in a 6 x 4 Current of
// blue 10 x + 60 y. Trials keep the first best, so a wrongly blended pixel at
// the first trial that scores 0 would hand the win to a later one.
TEST(BlockSearchSubpixel, LastColumnAndRowAreCopiedAndBeyondIsEmpty) {
  const struct {
    const char* name;
    int32_t bx, by, minX, maxX, minY, maxY;
    float step;
    unsigned char blue;
    float dx, dy, score;
  } cases[] = {
      {"last column copied despite weight 0.5", 5, 1, -1, 0, 0, 0, 0.5f, 110, -0.5f, 0, 0},
      {"last row copied despite weight 0.5", 1, 3, 0, 0, -1, 0, 0.5f, 190, 0, -0.5f, 0},
      {"one column beyond is empty", 5, 1, -1, -1, 0, 0, 1.0f, 110, -1, 0, EMPTY_PAIR},
      {"one row beyond is empty", 1, 3, 0, 0, -1, -1, 1.0f, 190, 0, -1, EMPTY_PAIR},
      {"left of column 0 is empty", 0, 1, 1, 1, 0, 0, 1.0f, 60, 1, 0, EMPTY_PAIR},
      {"above row 0 is empty", 1, 0, 0, 0, 1, 1, 1.0f, 10, 0, 1, EMPTY_PAIR},
  };
  for (const auto& c : cases) {
    TestPicture current = MakePicture(6, 4, c.bx, c.by);
    for (int32_t y = 0; y < 4; y++)
      for (int32_t x = 0; x < 6; x++) SetPixel(current, x, y, (unsigned char)(10 * x + 60 * y), 0, 0, 255);
    TestPicture reference = MakePicture(1, 1, 0, 0);
    SetPixel(reference, 0, 0, c.blue, 0, 0, 255);
    Current = current.image;
    Reference = reference.image;
    SetRange(0, c.minX, c.maxX, c.minY, c.maxY, c.step);
    Found f = Search(true, c.bx, c.by);
    EXPECT_EQ(f.score, c.score) << c.name;
    EXPECT_EQ(f.dx, c.dx) << c.name;
    EXPECT_EQ(f.dy, c.dy) << c.name;
  }
}

}  // namespace
