#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "blocks/blocks.h"
#include "console_capture.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

namespace {

void SetBlocks(int32_t grid, int32_t search, int32_t minX, int32_t maxX, int32_t minY, int32_t maxY, float step) {
  SettingsRecord& s = Settings;
  std::tie(s.GridWidth, s.SearchWidth, s.BlockShiftMinX, s.BlockShiftMaxX, s.BlockShiftMinY, s.BlockShiftMaxY,
           s.BlockShiftStep) = std::tuple(grid, search, minX, maxX, minY, maxY, step);
}

// Searches block (6, 6) with S over offsets minX..maxX, minY..maxY by step.
std::tuple<float, float, float> Search(const TestPicture& c, const TestPicture& r, bool subpixel, int32_t search,
                                       int32_t minX, int32_t maxX, int32_t minY, int32_t maxY, float step) {
  SetBlocks(0, search, minX, maxX, minY, maxY, step);
  std::tie(Current, Reference) = std::tie(c.image, r.image);
  float dx = 99, dy = 99;
  float score = subpixel ? SearchBlockOffsetSubpixel(dx, dy, 6, 6) : SearchBlockOffset(dx, dy, 6, 6);
  return {dx, dy, score};
}

// Runs the stage on copies of both pictures, checks its lines and Reference's return, gives Current's bytes.
std::vector<unsigned char> RunStage(const TestPicture& c, const TestPicture& r, int columns, int rows, int stars) {
  std::tie(Current, Reference) = std::tie(c.image, r.image);
  for (auto [image, bytes] : {std::pair{&Current, &c.bytes}, std::pair{&Reference, &r.bytes}})
    memcpy(image->pixels = AllocatePixels(image->width, image->height), bytes->data(), bytes->size());
  ConsoleCapture capture = BeginCapture();
  AdjustBlocks();
  EXPECT_EQ(EndCapture(capture), "Ajustage par blocs\nCalcul du meilleur ajustage (" + std::to_string(columns) +
                                     " blocs en largeur " + std::to_string(rows) + " blocs en hauteur)\n" +
                                     std::string(50, '-') + "\n" + std::string(stars, '*') +
                                     "\nDeformation de l'image\n");
  EXPECT_EQ(memcmp(Reference.pixels, r.bytes.data(), r.bytes.size()), 0);
  std::vector<unsigned char> after(Current.pixels, Current.pixels + c.bytes.size());
  for (Image* image : {&Current, &Reference}) ReleasePixels(*image);
  return after;
}

// Flat grey: a searched block takes its first trial (-M, -M), a skipped one (0, 0); kept: no block moved.
TEST(AdjustBlocks, GridCountsSkipBoundsAndExtremeValues) {
  const struct { int32_t grid, search, shift; float step; int32_t width, height, refWidth, refHeight, refX, refY;
                 int columns, rows, stars, kept; } cases[] = {
      {32, 10, 5, 1, 640, 40, 640, 40, 0, 0, 19, 1, 48, 0},  // columns at x = 16 .. 592
      {32, 10, 5, 1, 640, 40, 30, 40, -577, 0, 19, 1, 48, 0}, {32, 10, 5, 1, 640, 40, 29, 40, -577, 0, 19, 1, 48, 1},
      {1000, 10, 5, 1, 40, 40, 31, 40, 0, 0, 1, 1, 1, 0}, {1000, 10, 5, 1, 40, 40, 30, 40, 0, 0, 1, 1, 1, 1},
      {1000, 10, 5, 1, 40, 40, 40, 31, 0, 0, 1, 1, 1, 0}, {1000, 10, 5, 1, 40, 40, 40, 30, 0, 0, 1, 1, 1, 1},
      {1000, 10, 5, 1, 40, 40, 40, 40, -1, 0, 1, 1, 1, 0}, {1000, 10, 5, 1, 40, 40, 40, 40, -2, 0, 1, 1, 1, 1},
      {1000, 10, 5, 1, 40, 40, 40, 40, 0, -1, 1, 1, 1, 0}, {1000, 10, 5, 1, 40, 40, 40, 40, 0, -2, 1, 1, 1, 1},
      {1, 0, 0, 1, 7, 3, 7, 3, 0, 0, 5, 1, 41, 1}, {1, 0, 0, 1, 102, 3, 102, 3, 0, 0, 100, 1, 50, 1},
      {8, 10, 0, 1, 20, 20, 20, 20, 0, 0, 0, 0, 0, 1}, {8, 5, 2, 1, 40, 15, 40, 15, 0, 0, 3, 0, 34, 1},
      {1, INT32_MAX, 0, 1, 9, 9, 9, 9, 0, 0, 0, 0, 0, 1}, {INT32_MAX, 3, INT32_MAX, 1, 9, 9, 9, 9, 0, 0, 0, 0, 0, 1},
      {INT32_MAX, 3, -INT32_MAX, 1, 9, 9, 9, 9, 0, 0, 3, 3, 34, 1}, {4, 1, 2, 3e-38f, 9, 9, 9, 9, 0, 0, 1, 1, 1, 0},
      {4, 1, 2, 1, 9, 9, 9, 9, INT32_MIN, 0, 1, 1, 1, 1}, {4, 1, 2, 1e30f, 9, 9, 9, 9, 0, 0, 1, 1, 1, 0}};
  for (const auto& c : cases) {
    TestPicture current = MakePicture(c.width, c.height, 0, 0);
    TestPicture reference = MakePicture(c.refWidth, c.refHeight, c.refX, c.refY);
    for (TestPicture* p : {&current, &reference}) Fill(*p, 128, 128, 128, 255);
    SetBlocks(c.grid, c.search, -c.shift, c.shift, -c.shift, c.shift, c.step);
    EXPECT_EQ(RunStage(current, reference, c.columns, c.rows, c.stars) == current.bytes, c.kept) << &c - cases;
  }
}

// Block (6, 6), S 1, M 4, Reference moved -4 up to column 4, +4 after: whole finds -4, fractional +4 (or none).
TEST(AdjustBlocks, WholeStepSelectsTheWholeNumberSearch) {
  for (auto [step, shift] : {std::pair{1.0f, -4}, std::pair{2.0f, -4}, std::pair{0.5f, 4}, std::pair{1.5f, 0}}) {
    TestPicture current = MakePicture(20, 14, 10, 7), reference = MakePicture(20, 14, 10, 7);
    for (uint32_t state = 8080u; unsigned char& byte : current.bytes) byte = (unsigned char)(NextRandom(state) | 1);
    for (int32_t i = 0; i < 20 * 14; i++)
      memcpy(&reference.bytes[i * 4], &current.bytes[(i % 20 <= 4 ? i + 4 : i - 4) * 4], 4);
    SetBlocks(1000, 1, -4, 4, -4, 4, step);
    std::vector<unsigned char> after = RunStage(current, reference, 1, 1, 1);
    EXPECT_EQ(memcmp(&after[(7 * 20 + 4) * 4], &current.bytes[(7 * 20 + 8) * 4], 48) == 0, shift == -4) << step;
    EXPECT_EQ(memcmp(&after[(7 * 20 + 4) * 4], &current.bytes[(7 * 20 + 0) * 4], 48) == 0, shift == 4) << step;
  }
}

// Ramps moved by (mx, my): variant, S, offsets, step, move; offset and score found (-1: any above 0; 1e9: no trial).
TEST(BlockSearch, OffsetsFoundOverRamps) {
  float twentieth = -1.0f;  // from -1 by 0.1 as a float sum, just below 1; the next one passes 1
  for (int n = 1; n < 20; n++) twentieth += 0.1f;
  const struct { bool subpixel; int32_t search, minX, maxX, minY, maxY; float step, mx, my, dx, dy, score; } cases[] = {
      {0, 1, -2, 2, -2, 2, 1, 2, -1, 2, -1, 0}, {0, 1, -2, 2, -2, 2, 1, -2, 2, -2, 2, 0},  // whole
      {1, 2, -1, 1, -1, 1, 0.5f, 0.5f, -0.5f, 0.5f, -0.5f, 0}, {0, 1, 2, -2, 2, -2, 1, 0, 0, 0, 0, NO_MATCH_SCORE},
      {1, 2, -1, 1, 0, 0, 0.25f, 1, 0, 1, 0, 0}, {1, 2, 0, 0, -1, 1, 0.25f, 0, 1, 0, 1, 0},  // ninth trial
      {1, 2, -1, 1, 0, 0, 0.1f, 1, 0, twentieth, 0, -1}, {1, 2, 0, 0, -1, 1, 0.1f, 0, 1, 0, twentieth, -1},
      {1, 1, 0, 0, 1, 0, 0.5f, 0, 0, 0, 0, NO_MATCH_SCORE}, {1, 1, 1, 0, 0, 0, 0.5f, 0, 0, 0, 0, NO_MATCH_SCORE}};
  for (const auto& c : cases) {
    // Current: blue 20 x, green 20 y; Reference, centred a pixel right of and below it, shows it moved.
    TestPicture current = MakePicture(13, 13, 6, 6), reference = MakePicture(13, 13, 7, 7);
    for (int32_t x = 0, y = 0; y < 13; x = (x + 1) % 13, y += x == 0) {
      SetPixel(current, x, y, (unsigned char)(20 * x), (unsigned char)(20 * y), 100, 255);
      SetPixel(reference, x, y, (unsigned char)(int)(20 * (x - 1 - c.mx)), (unsigned char)(int)(20 * (y - 1 - c.my)),
               100, 255);
    }
    auto [dx, dy, score] = Search(current, reference, c.subpixel, c.search, c.minX, c.maxX, c.minY, c.maxY, c.step);
    EXPECT_EQ(std::tuple(dx, dy, c.score < 0 ? score > 0 : score == c.score), std::tuple(c.dx, c.dy, true))
        << &c - cases << std::hexfloat << ": " << dx << ", " << dy;
  }
}

// 1 x 1 patch: 370 kept as 114, a tie; last column and row copied; left of column 0 empty, also for S 7 whole.
TEST(BlockSearch, PatchesWrapAndStopAtTheEdges) {
  TestPicture current = MakePicture(8, 8, 6, 6), reference = MakePicture(1, 1, 0, 0);
  SetPixel(current, 5, 6, 114, 1, 0, 255);
  SetPixel(current, 6, 6, 250, 1, 0, 255);
  SetPixel(current, 7, 6, 10, 0, 0, 255);
  SetPixel(current, 7, 5, 50, 0, 0, 255);
  SetPixel(current, 6, 7, 10, 0, 0, 255);
  SetPixel(reference, 0, 0, 114, 1, 0, 255);
  EXPECT_EQ(Search(current, reference, true, 0, 0, 1, 0, 0, 0.5f), std::tuple(0.5f, 0.0f, 0.0f));
  SetPixel(reference, 0, 0, 10, 0, 0, 255);
  EXPECT_EQ(Search(current, reference, true, 0, -2, -1, 0, 0, 0.5f), std::tuple(-1.5f, 0.0f, 0.0f));
  EXPECT_EQ(Search(current, reference, true, 0, 0, 0, -2, -1, 0.5f), std::tuple(0.0f, -1.5f, 0.0f));
  EXPECT_EQ(std::get<0>(Search(current, reference, true, 0, 7, 8, 0, 0, 1.0f)), 7.0f);
  EXPECT_EQ(std::get<0>(Search(current, reference, false, 7, 7, 8, 0, 0, 1.0f)), 7.0f);
}

}  // namespace
