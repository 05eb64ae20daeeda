#include <gtest/gtest.h>

#include <tuple>

#include "console_capture.h"
#include "register/register.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

namespace {

char shiftLog[256];

using Quad = std::tuple<int32_t, int32_t, int32_t, int32_t>;
auto Range() {
  return std::tie(Settings.ShiftMinX, Settings.ShiftMaxX, Settings.ShiftMinY, Settings.ShiftMaxY);
}

std::string Delta(int64_t dx, int64_t dy) {
  return "DeltaX=" + std::to_string(dx) + "   DeltaY=" + std::to_string(dy) + "\n";
}

// Every byte, weights too, one of levels steps of 40 (a weight of 0 is an empty pixel).
TestPicture Random(int32_t w, int32_t h, int32_t x0, int32_t y0, uint32_t seed, uint32_t levels) {
  TestPicture picture = MakePicture(w, h, x0, y0);
  for (unsigned char& byte : picture.bytes)
    byte = (unsigned char)(NextRandom(seed) % levels * 40);
  return picture;
}

// Runs stage on a copy (scaled by 1) of current; returns the console and leaves the log in shiftLog.
std::string RunStage(void (*stage)(), const Image& current, const Image& reference) {
  Current = ScaleImage(current, 1.0f);
  Reference = reference;
  ShiftLog = fmemopen(shiftLog, sizeof shiftLog, "w+");
  ConsoleCapture capture = BeginCapture();
  stage();
  fclose(ShiftLog);
  ReleasePixels(Current);
  return EndCapture(capture);
}

// A star per 1/16.666667 of the range reached, three per refinement pass. -5 to 5 by 1: ten angles (the
// eleventh float sum passes 5), 16 stars, 5 passes. -2 to 2 by 0.5: five angles, 17 stars, 6 passes.
// Uniform pictures score alike at every angle: the best, a float rounded up, yields to each later one, so
// the refinement stays within the resolution and half a degree of the last coarse angle.
TEST(SearchTest, StarsPassesAndTheLastOfEqualScores) {
  TestPicture uniform = MakePicture(200, 200, 100, 100), middle = MakePicture(10, 10, 5, 5);
  Fill(uniform, 90, 90, 90, 255);
  Fill(middle, 80, 100, 90, 255);
  const struct { float low, high, resolution; int stars; double last; } cases[] = {{-5, 5, 1, 31, 4},
                                                                                  {-2, 2, 0.5f, 35, 2}};
  for (const auto& c : cases) {
    Settings = SettingsRecord{};
    // Stored as the script stores degrees.
    auto radians = [](float degrees) { return (float)(degrees * 0.017453292522222223); };
    std::tie(Settings.AngleMin, Settings.AngleMax) = std::tuple(radians(c.low), radians(c.high));
    Settings.AngleResolution = radians(c.resolution);
    std::string console = RunStage(SearchRotation, uniform.image, middle.image);
    std::string expected = "Ajustement global : \n" + std::string(50, '-') + "\n" + std::string(c.stars, '*');
    EXPECT_EQ(console.substr(0, expected.size() + 7), expected + "\ntheta=") << c.high;
    EXPECT_NEAR(std::stod(console.substr(expected.size() + 7)), c.last, c.resolution + 0.5) << c.high;
  }
}

// Angle 0: the reference with its point moved by (-3, 2) is found at (3, -2). Translation: nothing overlaps,
// so the first shift of 8 (I - 1) - 2 .. 8 (I + 1) + 2, saturated, wins. The range is put back.
TEST(SearchTest, ShiftLogLineAndRange) {
  const struct { void (*stage)(); Quad range; int64_t dx, dy; int mark; } cases[] = {
      {SearchRotation, {-INT32_MAX, INT32_MAX, -INT32_MAX, INT32_MAX}, 3, -2, 1},  // ends at once
      {SearchRotation, {3, 3, -2, -2}, 3, -2, 0},  // a single point logs nothing
      {SearchRotation, {3, 3, -4, 4}, 3, -2, 2},   // a single point on one axis only is on the edge
      {SearchTranslation, {INT32_MAX, INT32_MAX, INT32_MIN, INT32_MIN}, INT32_MAX - 17, INT32_MIN, 2}};
  TestPicture reference = Random(48, 40, 24, 20, 77, 7);
  Image moved = {reference.bytes.data(), 48, 40, 21, 22};
  Settings = SettingsRecord{};
  Settings.AngleResolution = 1;
  for (const auto& c : cases) {
    Range() = c.range;
    std::string console = RunStage(c.stage, moved, reference.image);
    std::string line = std::to_string(c.dx) + " " + std::to_string(c.dy);
    EXPECT_EQ(shiftLog, c.mark == 0 ? "" : line + (c.mark == 2 ? "   Non optimal\n" : " \n"));
    std::string warning = "\n!!! Attention : la valeur maximum de decalage autoris\x8E" "e a ete atteinte.\n";
    EXPECT_TRUE(console.ends_with(Delta(c.dx, c.dy) + (c.mark == 2 ? warning : ""))) << console;
    EXPECT_EQ(Range(), c.range);
  }
}

// Many placements do not overlap: skipping runs of them keeps the winner of plain loops (dx outer, best
// as a float) at angle 0, or on copies reduced by 8 followed by the first shift of the narrowed range.
TEST(SearchTest, SkippingRunsWithoutOverlapKeepsTheLiteralWinner) {
  uint32_t state = 9127u;
  auto random = [&state](int32_t n) { return (int32_t)(NextRandom(state) % (uint32_t)n); };
  Settings = SettingsRecord{};
  Settings.AngleResolution = 1;
  for (int trial = 0; trial < 600; trial++) {
    bool reduced = trial % 3 == 2;  // translation: sizes and shifts 5 times larger
    int32_t k = reduced ? 5 : 1, levels = random(2) ? 6 : 2, w = 1 + random(20 * k), h = 1 + random(20 * k);
    int32_t cw = 1 + random(24 * k), ch = 1 + random(24 * k), x0 = random(30 * k) - 5 * k, f = 1 + random(3);
    int32_t y0 = random(30 * k) - 5 * k, cx = random(cw + 1), cy = random(ch + 1), step = 1 + random(6);
    TestPicture reference = Random(w, h, x0, y0, NextRandom(state), levels);
    TestPicture current = Random(cw, ch, cx, cy, NextRandom(state), levels);
    int32_t minX = random(40 * k) - 35 * k, maxX = minX + random(55 * k) - 3 * k;
    int32_t minY = random(40 * k) - 35 * k, maxY = minY + random(55 * k) - 3 * k;
    Range() = Quad{minX, maxX, minY, maxY};
    Settings.ShiftStep = reduced ? 1000 : step;
    Settings.TranslationFraction = f;
    float scale = reduced ? 0.125f : 1;
    Image fixed = ScaleImage(reference.image, scale);
    Image moved = reduced ? ScaleImage(current.image, scale) : RotatedPatch(current.image, cw / f, ch / f, 0);
    std::string winner = reduced ? Delta(-10, -10) : Delta(0, 0);
    float best = 1e24f;
    for (int64_t dx = (int64_t)(minX * scale); dx <= maxX * scale; dx += reduced ? 1 : step)
      for (int64_t dy = (int64_t)(minY * scale); dy <= maxY * scale; dy += reduced ? 1 : step) {
        Image placed = {moved.pixels, moved.width, moved.height, (int32_t)(moved.x0 + dx),
                        (int32_t)(moved.y0 + dy)};
        double score = MatchScore(placed, fixed);
        if (score < best)
          winner = reduced ? Delta(8 * dx - 10, 8 * dy - 10) : Delta(dx, dy);
        best = score < best ? (float)score : best;
      }
    ReleasePixels(moved);
    ReleasePixels(fixed);
    void (*stage)() = reduced ? SearchTranslation : SearchRotation;
    EXPECT_NE(RunStage(stage, current.image, reference.image).find(winner), std::string::npos) << trial;
  }
}

}  // namespace
