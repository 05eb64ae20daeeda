// The block stage: the gradient form, the block searches, the deformation and the stage as a whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>
#include <vector>

#include "blocks/blocks.h"
#include "console_capture.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

namespace {

// Grid, S, offsets -maxX .. maxX and -maxY .. maxY, step.
void SetBlocks(int grid, int search, int maxX, int maxY, float step) {
  SettingsRecord& s = Settings;
  std::tie(s.GridWidth, s.SearchWidth, s.BlockShiftStep) = std::tuple(grid, search, step);
  std::tie(s.BlockShiftMinX, s.BlockShiftMaxX) = std::tuple(-maxX, maxX);
  std::tie(s.BlockShiftMinY, s.BlockShiftMaxY) = std::tuple(-maxY, maxY);
}

// Searches block (6, 6) of c in r with the fractional step; gives the offset and the score.
std::tuple<float, float, float> Search(const TestPicture& c, const TestPicture& r) {
  std::tie(Current, Reference) = std::tie(c.image, r.image);
  float dx = 99, dy = 99;
  float score = SearchBlockOffsetSubpixel(dx, dy, 6, 6);
  return {dx, dy, score};
}

// Runs the stage on copies of c and r, checks its console and that Reference is restored; gives Current.
std::vector<unsigned char> RunStage(const TestPicture& c, const TestPicture& r, int columns, int rows,
                                    int stars) {
  for (auto [image, picture] : {std::pair{&Current, &c}, std::pair{&Reference, &r}}) {
    *image = picture->image;
    image->pixels = AllocatePixels(image->width, image->height);
    memcpy(image->pixels, picture->bytes.data(), picture->bytes.size());
  }
  ConsoleCapture capture = BeginCapture();
  AdjustBlocks();
  std::string counts = std::to_string(columns) + " blocs en largeur " + std::to_string(rows);
  std::string bar = std::string(50, '-') + "\n" + std::string(stars, '*') + "\n";
  EXPECT_EQ(EndCapture(capture), "Ajustage par blocs\nCalcul du meilleur ajustage (" + counts +
                                     " blocs en hauteur)\n" + bar + "Deformation de l'image\n");
  EXPECT_EQ(memcmp(Reference.pixels, r.bytes.data(), r.bytes.size()), 0);
  std::vector<unsigned char> after(Current.pixels, Current.pixels + c.bytes.size());
  ReleasePixels(Current);
  ReleasePixels(Reference);
  return after;
}

// Flat grey, S 10, M 5: a searched block takes its first trial, (-5, -5), which empties an edge.
TEST(AdjustBlocks, GridCountsAndSkipBounds) {
  const int cases[][11] = {
      // grid, width, height, reference width, height, x0, y0; columns, rows, stars; a block moved
      {32, 640, 40, 640, 40, 0, 0, 19, 1, 48, 1},  // columns at x = 16 .. 592
      {1000, 40, 40, 30, 30, -1, -1, 1, 1, 1, 1},  // block (16, 16) spans 0 .. 30 of Reference
      {1000, 40, 40, 30, 30, -2, -1, 1, 1, 1, 0},
      {1000, 40, 40, 30, 30, -1, -2, 1, 1, 1, 0},
      {1000, 40, 40, 30, 30, 0, -1, 1, 1, 1, 0},
      {1000, 40, 40, 30, 30, -1, 0, 1, 1, 1, 0},
      {8, 55, 30, 55, 30, 0, 0, 3, 0, 34, 0},
  };
  for (const auto& c : cases) {
    TestPicture current = MakePicture(c[1], c[2], 0, 0);
    TestPicture reference = MakePicture(c[3], c[4], c[5], c[6]);
    for (TestPicture* picture : {&current, &reference}) Fill(*picture, 128, 128, 128, 255);
    SetBlocks(c[0], 10, 5, 5, 1);
    EXPECT_EQ(RunStage(current, reference, c[7], c[8], c[9]) != current.bytes, c[10] == 1) << &c - cases;
  }
}

// Reference: Current moved -4 up to column 4, +4 after; offsets -4 and +4 both match block (6, 6).
TEST(AdjustBlocks, WholeStepSelectsTheWholeNumberSearch) {
  const std::pair<float, int> cases[] = {{1, -4}, {2, -4}, {0.5f, 4}, {1.5f, 0}};  // step, offset taken
  for (auto [step, shift] : cases) {
    TestPicture current = MakePicture(20, 14, 10, 7);
    TestPicture reference = MakePicture(20, 14, 10, 7);
    uint32_t state = 8080u;
    for (unsigned char& byte : current.bytes) byte = (unsigned char)(NextRandom(state) | 1);
    for (int i = 0; i < 20 * 14; i++)
      memcpy(&reference.bytes[i * 4], &current.bytes[(i % 20 <= 4 ? i + 4 : i - 4) * 4], 4);
    SetBlocks(1000, 1, 4, 4, step);
    std::vector<unsigned char> after = RunStage(current, reference, 1, 1, 1);
    const unsigned char* row7 = &current.bytes[7 * 20 * 4];
    EXPECT_EQ(memcmp(&after[(7 * 20 + 4) * 4], row7 + 8 * 4, 48) == 0, shift == -4) << step;
    EXPECT_EQ(memcmp(&after[(7 * 20 + 4) * 4], row7, 48) == 0, shift == 4) << step;
  }
}

unsigned char Ramp(int v, float move) { return (unsigned char)(int)(20 * (v - move)); }

// Blue 20 x, green 20 y; Reference, centred a pixel right and below, shows Current moved 1 right or down.
// Offsets run -1 .. 1 as float sums: by 0.25 they reach 1 exactly; by 0.1 the twentieth sum lies just below 1
// and the next passes it, so that sum is the best.
TEST(BlockSearch, FractionalOffsetsRunAsFloatSums) {
  float twentieth = -1.0f;
  for (int n = 1; n < 20; n++) twentieth += 0.1f;
  for (auto [step, best] : {std::pair{0.1f, twentieth}, std::pair{0.25f, 1.0f}})
    for (bool right : {true, false}) {
      TestPicture current = MakePicture(13, 13, 6, 6);
      TestPicture reference = MakePicture(13, 13, 7, 7);
      for (int i = 0; i < 13 * 13; i++) {
        SetPixel(current, i % 13, i / 13, Ramp(i % 13, 0), Ramp(i / 13, 0), 100, 255);
        SetPixel(reference, i % 13, i / 13, Ramp(i % 13 - 1, right), Ramp(i / 13 - 1, !right), 100, 255);
      }
      SetBlocks(0, 2, right, !right, step);  // offsets along the move only
      auto [dx, dy, score] = Search(current, reference);
      EXPECT_EQ(std::tuple(dx, dy), right ? std::tuple(best, 0.0f) : std::tuple(0.0f, best)) << step;
    }
}

// 1 x 1 patch: offset 0.5 blends 1.5 x 250 - 0.5 x 0 = 375, kept as 119, a match; offset 1 only ties.
TEST(BlockSearch, BlendsWrapAndTiesKeepTheFirst) {
  TestPicture current = MakePicture(8, 8, 6, 6);
  TestPicture reference = MakePicture(1, 1, 0, 0);
  SetPixel(current, 5, 6, 119, 1, 0, 255);
  SetPixel(current, 6, 6, 250, 1, 0, 255);
  SetPixel(reference, 0, 0, 119, 1, 0, 255);
  SetBlocks(0, 0, 1, 0, 0.5f);
  EXPECT_EQ(Search(current, reference), std::tuple(0.5f, 0.0f, 0.0f));
}

// Deforms through columns x rows blocks of cell pixels; spare field entries are NaN, so reading one shows.
TestPicture Deform(const TestPicture& p, int cell, int cols, int rows, std::vector<float> dx,
                   std::vector<float> dy) {
  dx.resize((size_t)(cols + 1) * (rows + 1), NAN);
  dy.resize(dx.size(), NAN);
  Image result = DeformImage(p.image, BlockField{dx.data(), dy.data(), nullptr, cols, rows}, cell, cell);
  TestPicture out = MakePicture(result.width, result.height, result.x0, result.y0);
  memcpy(out.bytes.data(), result.pixels, out.bytes.size());
  ReleasePixels(result);
  return out;
}

// Whether pixel (x, y) of a is pixel (sx, sy) of b, or empty (all four bytes 0) where that lies outside b.
bool Fetched(const TestPicture& a, int32_t x, int32_t y, const TestPicture& b, int32_t sx, int32_t sy) {
  const unsigned char empty[4] = {};
  bool inside = sx >= 0 && sy >= 0 && sx < b.image.width && sy < b.image.height;
  const unsigned char* from = inside ? &b.bytes[(sy * b.image.width + sx) * 4] : empty;
  return memcmp(&a.bytes[(y * a.image.width + x) * 4], from, 4) == 0;
}

// Constant (0, 0) over 2 x 2 blocks, (2, 0) over one column, (0, -1) over one row; then 0, 2, 4 down one
// column of cell 2 (points at rows 1, 3, 5), which varies down the column and not across a row.
TEST(DeformImage, WholeOffsetsMoveThePixelsWeightIncluded) {
  TestPicture p = MakePicture(11, 7, 4, -3);
  for (uint32_t state = 5u; unsigned char& byte : p.bytes) byte = (unsigned char)NextRandom(state);
  const int cases[][4] = {{2, 2, 0, 0}, {1, 3, 2, 0}, {3, 1, 0, -1}};  // columns, rows, dx, dy
  for (auto [columns, rows, dx, dy] : cases) {
    std::vector<float> x(columns * rows, (float)dx), y(columns * rows, (float)dy);
    TestPicture out = Deform(p, 4, columns, rows, x, y);
    EXPECT_TRUE(out.image.width == 11 && out.image.height == 7 && out.image.x0 == 4 && out.image.y0 == -3);
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
    EXPECT_EQ(out.bytes[i], i % 24 < 4 ? (i % 4 == 3 ? 255 : ab[i / 24][2]) : (p.bytes[i - 4] + p.bytes[i]) / 2)
        << i;
  for (int32_t x = 0; x < 6; x++)  // the last row copies
    EXPECT_TRUE(Fetched(out, x, 3, p, std::max(x - 1, 0), 3)) << x;
}

// Cell 5: points at x 2.5, 7.5, 12.5 move 0, 0, 10 right, 1 down; x = 7 has weight -0.1 past point 1.
TEST(DeformImage, OddCellSizeExtrapolatesBetweenBlockPoints) {
  TestPicture p = MakePicture(20, 3, 0, 0);
  for (int i = 0; i < 60; i++) SetPixel(p, i % 20, i / 20, (unsigned char)(10 * (i % 20)), 0, 0, 255);
  TestPicture out = Deform(p, 5, 3, 2, {0, 0, 10, 0, 0, 0}, {1, 1, 1, 1, 1, 1});
  const int cases[][2] = {{0, 0}, {2, 2}, {3, 3}, {7, 8}, {8, 7}, {12, 2}, {13, 3}, {19, 9}};  // x, source x
  for (auto [x, from] : cases)
    for (int y = 0; y < 3; y++)
      EXPECT_EQ(out.bytes[(y * 20 + x) * 4], y == 0 ? 0 : 10 * from) << x << ", " << y;
}

// Grey 20 from (0, 62, 0); greys v above, left, right, below the centre from (0, v, 2 v), read as grey.
TEST(GradientForm, CentreHalvesGreyDifferencesTowardZeroAndTheFrameKeepsItsBytes) {
  const int cases[][6] = {{20, 20, 20, 20, 128, 128}, {0, 0, 3, 3, 127, 127}, {3, 3, 0, 0, 129, 129},
                          {8, 7, 8, 7, 128, 128}, {1, 120, 1, 120, 187, 69}};
  for (const auto& c : cases) {
    TestPicture p = MakePicture(3, 3, 0, 0);
    Fill(p, 0, 62, 0, 200);
    for (int n = 0; n < 4; n++)  // pixels 1, 3, 5, 7
      SetPixel(p, (2 * n + 1) % 3, (2 * n + 1) / 3, 0, (unsigned char)c[n], (unsigned char)(2 * c[n]), 200);
    std::vector<unsigned char> want = p.bytes;
    for (size_t i = 0; i < 36; i += 4) want[i] = (unsigned char)((want[i + 1] + want[i + 2]) / 3);
    std::tie(want[17], want[18]) = std::tuple(c[4], c[5]);
    MakeGradientForm(p.image);
    EXPECT_EQ(p.bytes, want) << c[0] << " " << c[1] << " " << c[2] << " " << c[3];
  }
}

}  // namespace
