#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "blocks/blocks.h"
#include "console_capture.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

namespace {

// Offsets per block (k, l) at l * columns + k; the spare entries hold NaN so
// that reading one spoils the result.
struct TestField {
  std::vector<float> dx;
  std::vector<float> dy;
  std::vector<float> score;
  BlockField field;
};

TestField MakeField(int32_t columns, int32_t rows, const std::vector<float>& dx,
                    const std::vector<float>& dy) {
  TestField f;
  size_t entries = (size_t)(columns + 1) * (rows + 1);
  f.dx.assign(entries, NAN);
  f.dy.assign(entries, NAN);
  f.score.assign(entries, NAN);
  for (size_t i = 0; i < (size_t)columns * rows; i++) {
    f.dx[i] = dx[i];
    f.dy[i] = dy[i];
    f.score[i] = 0;
  }
  f.field = BlockField{f.dx.data(), f.dy.data(), f.score.data(), columns, rows};
  return f;
}

TestField ConstantField(int32_t columns, int32_t rows, float dx, float dy) {
  size_t count = (size_t)columns * rows;
  return MakeField(columns, rows, std::vector<float>(count, dx), std::vector<float>(count, dy));
}

TestPicture RandomPicture(int32_t width, int32_t height, uint32_t seed) {
  printf("seed %u\n", seed);
  uint32_t state = seed;
  TestPicture picture = MakePicture(width, height, width / 2 + 1, height / 2 - 1);
  for (unsigned char& byte : picture.bytes) byte = (unsigned char)NextRandom(state);
  return picture;
}

const unsigned char* PixelAt(const Image& image, int32_t x, int32_t y) {
  return image.pixels + ((int64_t)y * image.width + x) * 4;
}

bool SamePixel(const Image& a, int32_t ax, int32_t ay, const Image& b, int32_t bx, int32_t by) {
  return memcmp(PixelAt(a, ax, ay), PixelAt(b, bx, by), 4) == 0;
}

TEST(DeformImage, ZeroFieldIsAnExactCopyWeightIncluded) {
  TestPicture picture = RandomPicture(13, 9, 31u);
  TestField f = ConstantField(3, 2, 0, 0);
  Image result = DeformImage(picture.image, f.field, 4, 4);
  EXPECT_EQ(result.width, 13);
  EXPECT_EQ(result.height, 9);
  EXPECT_EQ(result.x0, picture.image.x0);
  EXPECT_EQ(result.y0, picture.image.y0);
  EXPECT_NE(result.pixels, picture.image.pixels);
  EXPECT_EQ(memcmp(result.pixels, picture.bytes.data(), picture.bytes.size()), 0);
  ReleasePixels(result);
}

TEST(DeformImage, FieldOfTwoMovesRightLeavingTwoEmptyColumns) {
  TestPicture picture = RandomPicture(11, 7, 5u);
  TestField f = ConstantField(2, 2, 2, 0);
  Image result = DeformImage(picture.image, f.field, 4, 4);
  const unsigned char empty[4] = {0, 0, 0, 0};
  for (int32_t y = 0; y < 7; y++) {
    for (int32_t x = 0; x < 11; x++) {
      if (x < 2)
        EXPECT_EQ(memcmp(PixelAt(result, x, y), empty, 4), 0) << x << "," << y;
      else
        EXPECT_TRUE(SamePixel(result, x, y, picture.image, x - 2, y)) << x << "," << y;
    }
  }
  ReleasePixels(result);
}

// Columns 0 and 1 hold a pair per row in all three colours; x = 0 samples at
// -0.5: whole part 0, weight -0.5, so 1.5 a - 0.5 b truncated, low 8 bits.
TEST(DeformImage, HalfPixelFieldBlendsAndExtrapolatesWithWrap) {
  struct PairCase {
    const char* name;
    unsigned char a, b, atZero;
  };
  const PairCase cases[] = {
      {"370 wraps to 114", 250, 10, 114},
      {"-110 wraps to 146", 10, 250, 146},
      {"-0.5 truncates to 0, not -1", 0, 1, 0},
      {"382.5 wraps to 126", 255, 0, 126},
      {"flat", 100, 100, 100},
  };
  const int32_t rows = 5;
  TestPicture picture = RandomPicture(6, rows + 1, 77u);
  for (int32_t y = 0; y <= rows; y++) {
    const PairCase& c = cases[y < rows ? y : 0];
    SetPixel(picture, 0, y, c.a, c.a, c.a, 255);
    SetPixel(picture, 1, y, c.b, c.b, c.b, 255);
    for (int32_t x = 2; x < 6; x++) picture.bytes[(y * 6 + x) * 4 + 3] = 255;
  }
  TestField f = ConstantField(1, 1, 0.5f, 0);
  Image result = DeformImage(picture.image, f.field, 32, 32);
  for (int32_t y = 0; y < rows; y++) {
    const PairCase& c = cases[y];
    for (int b = 0; b < 3; b++) EXPECT_EQ(PixelAt(result, 0, y)[b], c.atZero) << c.name;
    EXPECT_EQ(PixelAt(result, 0, y)[3], 255) << c.name;
    for (int32_t x = 1; x < 6; x++)
      for (int b = 0; b < 4; b++)
        EXPECT_EQ(PixelAt(result, x, y)[b],
                  (PixelAt(picture.image, x - 1, y)[b] + PixelAt(picture.image, x, y)[b]) / 2)
            << c.name << " x " << x << " byte " << b;
  }
  // The last row copies: x = 0 from column 0 itself, x from column x - 1.
  EXPECT_TRUE(SamePixel(result, 0, rows, picture.image, 0, rows));
  for (int32_t x = 1; x < 6; x++) EXPECT_TRUE(SamePixel(result, x, rows, picture.image, x - 1, rows)) << x;
  ReleasePixels(result);
}

// Cell 5: block points at 2.5, 7.5, 12.5. Offsets 0, 0, 10 across; blue 10 x.
// x = 7 lies before the point 7.5: k = 1, fx = -0.1, so columns 1 and 2
// weigh 1.1 and -0.1 and the offset is -1.
TEST(DeformImage, OddCellSizeExtrapolatesBetweenBlockPoints) {
  TestPicture picture = MakePicture(20, 3, 0, 0);
  for (int32_t y = 0; y < 3; y++)
    for (int32_t x = 0; x < 20; x++) SetPixel(picture, x, y, (unsigned char)(10 * x), 0, 0, 255);
  TestField f = MakeField(3, 1, {0, 0, 10}, {0, 0, 0});
  Image result = DeformImage(picture.image, f.field, 5, 5);
  const int32_t cases[][2] = {
      {0, 0}, {2, 2},   // up to cell / 2 = 2 the first column holds
      {3, 3},           // k = 0, fx = 0.1 between two zeros
      {7, 8},           // k = 1, fx = -0.1: offset 10 x -0.1 = -1
      {8, 7},           // k = 1, fx = 0.1: offset 1
      {12, 2},          // k = 2 is the last: 10 x 1.1 + 10 x -0.1 = 10
      {13, 3}, {19, 9}  // k = 3 is past the last: offset 10
  };
  for (const auto& c : cases)
    for (int32_t y = 0; y < 3; y++)
      EXPECT_EQ(PixelAt(result, c[0], y)[0], 10 * c[1]) << "x " << c[0] << " row " << y;
  ReleasePixels(result);
}

// One column of blocks: the offset varies only down the picture, and so each
// row is moved as a whole; one row of blocks: only across.
TEST(DeformImage, SingleColumnOrRowOfBlocks) {
  TestPicture picture = RandomPicture(10, 14, 12u);
  TestField column = MakeField(1, 3, {0, 2, 4}, {0, 0, 0});
  Image result = DeformImage(picture.image, column.field, 4, 4);
  // Row points at y = 2, 6, 10; y = 4 is halfway: 1.
  const int32_t rowShift[][2] = {{0, 0}, {2, 0}, {4, 1}, {6, 2}, {8, 3}, {10, 4}, {13, 4}};
  for (const auto& r : rowShift)
    for (int32_t x = r[1]; x < 10; x++)
      EXPECT_TRUE(SamePixel(result, x, r[0], picture.image, x - r[1], r[0])) << x << "," << r[0];
  ReleasePixels(result);

  TestField row = MakeField(3, 1, {0, 0, 0}, {0, 1, 2});
  result = DeformImage(picture.image, row.field, 4, 4);
  const int32_t columnShift[][2] = {{0, 0}, {2, 0}, {6, 1}, {9, 2}};
  for (const auto& c : columnShift)
    for (int32_t y = c[1]; y < 14; y++)
      EXPECT_TRUE(SamePixel(result, c[0], y, picture.image, c[0], y - c[1])) << c[0] << "," << y;
  ReleasePixels(result);
}

// Distinct whole offsets per block, read back at the block points.
TEST(DeformImage, BlockIndexIsRowTimesColumnsPlusColumn) {
  TestPicture picture = RandomPicture(12, 12, 3u);
  TestField f = MakeField(2, 2, {0, 1, 2, 3}, {0, 0, 0, 0});
  Image result = DeformImage(picture.image, f.field, 4, 4);
  const int32_t points[][3] = {{2, 2, 0}, {6, 2, 1}, {2, 6, 2}, {6, 6, 3}};
  for (const auto& p : points)
    EXPECT_TRUE(SamePixel(result, p[0], p[1], picture.image, p[0] - p[2], p[1])) << p[0] << "," << p[1];
  ReleasePixels(result);
}

// --- The whole stage, through AdjustBlocks -------------------------------

void SetBlockSettings(int32_t grid, int32_t search, int32_t maxShift, float step) {
  Settings = SettingsRecord{};
  Settings.GridWidth = grid;
  Settings.SearchWidth = search;
  Settings.BlockShiftMinX = Settings.BlockShiftMinY = -maxShift;
  Settings.BlockShiftMaxX = Settings.BlockShiftMaxY = maxShift;
  Settings.BlockShiftStep = step;
}

Image AllocatedCopy(const TestPicture& picture) {
  Image image = picture.image;
  image.pixels = AllocatePixels(image.width, image.height);
  memcpy(image.pixels, picture.bytes.data(), picture.bytes.size());
  return image;
}

std::string RunAdjustBlocks() {
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

struct StageCase {
  const char* name;
  int32_t grid, search, maxShift;
  float step;
  int32_t width, height;
  int32_t referenceX0;
  int columns, rows, stars;
  bool unchanged;  // no block can move anything: Current keeps its bytes
};

// Each runs the stage on unrelated random pictures: it must end, print the
// counts, keep Reference and the geometry of Current, and where no block can
// move leave Current's bytes as they were.
TEST(AdjustBlocks, EmptyGridsAndExtremeValuesEndAndKeepThePictures) {
  const StageCase cases[] = {
      {"search width leaves no column", 8, 10, 0, 1.0f, 20, 20, 10, 0, 0, 0, true},
      {"columns but no row", 8, 5, 2, 1.0f, 40, 15, 20, 3, 0, 34, true},
      {"grid, max shift at the 32-bit limit", 2147483647, 3, 2147483647, 1.0f, 20, 20, 10, 0, 0, 0, true},
      {"search width at the 32-bit limit", 1, 2147483647, 0, 1.0f, 20, 20, 10, 0, 0, 0, true},
      {"negative max shift at the limit: points beyond 32 bits, no trial", 2147483647, 3, -2147483647,
       1.0f, 20, 20, 10, 3, 3, 34, true},
      {"negative max shift, fractional step", 2147483647, 0, -5, 0.5f, 20, 20, 10, 1, 1, 1, true},
      {"grid wider than the picture", 1000, 2, 1, 1.0f, 20, 20, 10, 1, 1, 1, false},
      {"grid at the 32-bit limit", 2147483647, 0, 0, 1.0f, 20, 20, 10, 1, 1, 1, true},
      {"step too large to take twice", 4, 1, 2, 1e30f, 20, 20, 10, 3, 3, 34, false},
      {"step too small to move the float sum", 4, 1, 2, 3e-38f, 20, 20, 10, 3, 3, 34, false},
      {"reference centre at the other 32-bit limit: all skipped", 4, 1, 2, 1.0f, 20, 20, INT32_MIN, 3, 3,
       34, true},
  };
  for (const StageCase& c : cases) {
    TestPicture current = RandomPicture(c.width, c.height, 1000u);
    TestPicture reference = RandomPicture(c.width, c.height, 2000u);
    current.image.x0 = 10;
    current.image.y0 = 10;
    reference.image.x0 = c.referenceX0;
    reference.image.y0 = 10;
    for (size_t i = 3; i < current.bytes.size(); i += 4) current.bytes[i] = reference.bytes[i] = 255;
    Current = AllocatedCopy(current);
    Reference = AllocatedCopy(reference);
    SetBlockSettings(c.grid, c.search, c.maxShift, c.step);
    EXPECT_EQ(RunAdjustBlocks(), Printed(c.columns, c.rows, c.stars)) << c.name;
    EXPECT_EQ(Current.width, c.width) << c.name;
    EXPECT_EQ(Current.height, c.height) << c.name;
    EXPECT_EQ(Current.x0, 10) << c.name;
    EXPECT_EQ(Current.y0, 10) << c.name;
    EXPECT_EQ(Reference.x0, c.referenceX0) << c.name;
    EXPECT_EQ(memcmp(Reference.pixels, reference.bytes.data(), reference.bytes.size()), 0) << c.name;
    if (c.unchanged) {
      EXPECT_EQ(memcmp(Current.pixels, current.bytes.data(), current.bytes.size()), 0) << c.name;
    }
    ReleasePixels(Current);
    ReleasePixels(Reference);
  }
}

// Current shows Reference's content 2 pixels too far left and 1 too far
// down; every block finds (2, -1) and the deformed picture is Reference again
// wherever the source reaches.
TEST(AdjustBlocks, UndoesAKnownWholeDisplacement) {
  TestPicture reference = RandomPicture(48, 48, 555u);
  TestPicture current = RandomPicture(48, 48, 556u);
  for (size_t i = 3; i < reference.bytes.size(); i += 4) reference.bytes[i] = current.bytes[i] = 255;
  for (int32_t y = 0; y < 48; y++)
    for (int32_t x = 0; x < 48; x++)
      if (x + 2 < 48 && y - 1 >= 0)
        memcpy(&current.bytes[(y * 48 + x) * 4], &reference.bytes[((y - 1) * 48 + x + 2) * 4], 4);
  current.image.x0 = reference.image.x0 = 24;
  current.image.y0 = reference.image.y0 = 24;
  Current = AllocatedCopy(current);
  Reference = AllocatedCopy(reference);
  SetBlockSettings(8, 4, 3, 1.0f);
  EXPECT_EQ(RunAdjustBlocks(), Printed(4, 4, 38));
  for (int32_t y = 0; y < 47; y++)
    for (int32_t x = 2; x < 48; x++) EXPECT_TRUE(SamePixel(Current, x, y, Reference, x, y)) << x << "," << y;
  for (int32_t y = 0; y < 48; y++) EXPECT_EQ(PixelAt(Current, 0, y)[3], 0) << y;
  ReleasePixels(Current);
  ReleasePixels(Reference);
}

}  // namespace
