#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "console_capture.h"
#include "register/register.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

namespace {

const std::string HEAD = "Ajustement global : \n" + std::string(50, '-') + "\n";
const std::string WARNING =
    "\n!!! Attention : la valeur maximum de decalage autoris\x8E" "e a ete atteinte.\n";

// Degrees as the script stores them: a float, times pi/180, rounded to float.
float Radians(double degrees) { return (float)((double)(float)degrees * 0.017453292522222223); }

std::string Delta(int64_t dx, int64_t dy) {
  return "DeltaX=" + std::to_string(dx) + "   DeltaY=" + std::to_string(dy) + "\n";
}

void FillRandom(TestPicture& picture, uint32_t& state, uint32_t levels, bool someEmpty) {
  for (size_t i = 0; i < picture.bytes.size(); i++)
    picture.bytes[i] = (unsigned char)(i % 4 != 3 ? NextRandom(state) % levels * 40
                                       : someEmpty && NextRandom(state) % 4 == 0 ? 0 : 255);
}

using Quad = std::tuple<int32_t, int32_t, int32_t, int32_t>;
auto Range() {
  return std::tie(Settings.ShiftMinX, Settings.ShiftMaxX, Settings.ShiftMinY, Settings.ShiftMaxY);
}

// What plain loops over every shift pick (dx outer, best as a float): at angle 0, or reduced.
float LiteralShifts(const Image& current, const Image& reference, bool reduced,
                    int64_t (&winner)[2]) {
  const SettingsRecord& s = Settings;
  int64_t step = reduced ? 1 : s.ShiftStep, f = s.TranslationFraction;
  double scale = reduced ? 0.125 : 1;
  Image moving = reduced ? ScaleImage(current, 0.125f)
                         : RotatedPatch(current, current.width / f, current.height / f, 0.0f);
  Image fixed = reduced ? ScaleImage(reference, 0.125f) : reference;
  float best = 1e24f;
  for (int64_t dx = (int64_t)(s.ShiftMinX * scale); dx <= s.ShiftMaxX * scale; dx += step)
    for (int64_t dy = (int64_t)(s.ShiftMinY * scale); dy <= s.ShiftMaxY * scale; dy += step) {
      Image placed = moving;
      placed.x0 = (int32_t)(moving.x0 + dx), placed.y0 = (int32_t)(moving.y0 + dy);
      double score = MatchScore(placed, fixed);
      if (score < best) best = (float)score, winner[0] = dx, winner[1] = dy;
    }
  ReleasePixels(moving);
  if (reduced) ReleasePixels(fixed), winner[0] = 8 * winner[0] - 10, winner[1] = 8 * winner[1] - 10;
  return best;
}

class SearchTest : public ::testing::Test {
 protected:
  void SetUp() override { Settings = SettingsRecord{}, Settings.AngleResolution = 1, Current = {}; }
  void TearDown() override { ReleasePixels(Current); }
  // Runs stage on a copy of current; returns the console and leaves the shift log in log.
  std::string Run(void (*stage)(), const Image& current, const Image& reference) {
    ReleasePixels(Current);
    Current = current, Current.pixels = AllocatePixels(current.width, current.height);
    memcpy(Current.pixels, current.pixels, (size_t)current.width * current.height * 4);
    char* text;
    size_t size;
    Reference = reference, ShiftLog = open_memstream(&text, &size);
    ConsoleCapture capture = BeginCapture();
    stage();
    std::string console = EndCapture(capture);
    fclose(ShiftLog), log.assign(text, size), free(text);
    return console;
  }
  std::string log;
};

// Stars: one per 1/16.666667 of the angle range reached, three per refinement pass. A ramp turned
// by theta is found. Uniform pictures score alike: a later angle wins over a float rounded up.
TEST_F(SearchTest, StarsPassesAndTheAngleFound) {
  const struct { const char* name; double min, max, resolution; int stars, passes; double theta,
                 tolerance; int blue; } cases[] = {
      {"-2..2 by 0.5 degree: 17 stars, 6 passes", -2, 2, 0.5, 17, 6, 1.4, 0.25, 0},
      {"-5..5: 5 degrees never reached, 16 stars", -5, 5, 0.5, 16, 6, -2.3, 0.25, 0},
      {"resolution 1 degree: 5 passes", -5, 5, 1, 16, 5, 2.3, 0.5, 0},
      {"min above max: no coarse stars, 7 passes from 0", 1, -1, 0.25, 0, 7, 0, 0.75, 0},
      {"equal score exact in a float: the first angle stays", -2, 2, 0.5, 17, 6, -2, 1.1, 90},
      {"equal score rounded up in a float: the last angle wins", -2, 2, 0.5, 17, 6, 2, 1.1, 80}};
  TestPicture ramp = MakePicture(240, 240, 120, 120), uniform = MakePicture(200, 200, 100, 100);
  for (int32_t i = 0; i < 240 * 240; i++)
    SetPixel(ramp, i % 240, i / 240, (unsigned char)(i % 240), (unsigned char)(i / 240), 0, 255);
  Fill(uniform, 90, 90, 90, 255);
  TestPicture middle = MakePicture(10, 10, 5, 5);
  for (const auto& c : cases) {
    Settings.AngleMin = Radians(c.min), Settings.AngleMax = Radians(c.max);
    Settings.AngleResolution = Radians(c.resolution);
    Fill(middle, (unsigned char)c.blue, (unsigned char)(180 - c.blue), 90, 255);
    Image turned = TransformImage(ramp.image, Radians(c.theta), 0.0f, 0.0f);
    std::string console = c.blue ? Run(SearchRotation, uniform.image, middle.image)
                                 : Run(SearchRotation, ramp.image, turned);
    ReleasePixels(turned);
    std::string expected = HEAD + std::string(c.stars + 3 * c.passes, '*') + "\ntheta=";
    EXPECT_EQ(console.substr(0, expected.size()), expected) << c.name;
    EXPECT_NEAR(std::stod(console.substr(expected.size())), c.theta, c.tolerance) << c.name;
    EXPECT_EQ(log, "") << c.name;  // a single-point shift range logs nothing
  }
}

// Picture 0: the reference moved by (3, -2), registered back (row 2). Translation: a black current
// on a gradient rising (1) or falling (-1) with the reduced column and row, so the last or first
// i and j tried win; picture 2 reduces to no rows, so the first placement wins at both stages.
TEST_F(SearchTest, ConsoleLogLineAndRange) {
  const struct { const char* name; int picture; Quad range; int32_t step; int64_t dx, dy;
                 const char* line; } cases[] = {
      {"inside the range", 0, {-5, 5, -5, 5}, 1, 3, -2, "3 -2 \n"},
      {"on ShiftMaxX", 0, {-3, 3, -5, 5}, 1, 3, -2, "3 -2   Non optimal\n"},
      {"on ShiftMinY", 0, {-5, 5, -2, 5}, 1, 3, -2, "3 -2   Non optimal\n"},
      {"single point: no line, no warning", 0, {3, 3, -2, -2}, 1, 3, -2, ""},
      {"one axis a single point still logs", 0, {3, 3, -4, 4}, 1, 3, -2, "3 -2   Non optimal\n"},
      {"the full 32-bit range ends at once", 0, {-INT32_MAX, INT32_MAX, -INT32_MAX, INT32_MAX}, 1, 3, -2, "3 -2 \n"},
      {"+-20: 3 exceeds 2.5", 1, {-20, 20, -20, 20}, 1000, 6, 6, "6 6   Non optimal\n"},
      {"+-20: -2.5 truncates to -2", -1, {-20, 20, -20, 20}, 1000, -26, -26, "-26 -26   Non optimal\n"},
      {"+-7: only 0, not 1", 1, {-7, 7, -7, 7}, 1000, -10, -10, "-10 -10   Non optimal\n"},
      {"+-7: only 0, not -1", -1, {-7, 7, -7, 7}, 1000, -10, -10, "-10 -10   Non optimal\n"},
      {"maximum -12: -1 exceeds -1.5", 1, {-20, -12, -20, -12}, 1000, -26, -26, "-26 -26   Non optimal\n"},
      {"narrowed to 8 I +- 10: step 20 reaches both ends", 1, {-24, 24, 0, 0}, 20, 34, 10, "34 10   Non optimal\n"},
      {"step 21 reaches only the first", 1, {-24, 24, 0, 0}, 21, 14, -10, "14 -10   Non optimal\n"},
      {"8 (I - 1) - 2 saturates at the bottom", 2, {-INT32_MAX, INT32_MAX, -INT32_MAX, INT32_MAX}, 1000, INT32_MIN, INT32_MIN, "-2147483648 -2147483648   Non optimal\n"},
      {"8 (I + 1) + 2 saturates at the top", 2, {INT32_MAX, INT32_MAX, 0, 0}, 1000, INT32_MAX - 17, -10, "2147483630 -10   Non optimal\n"}};
  TestPicture reference = MakePicture(48, 40, 24, 20), moved = MakePicture(48, 40, 24, 20);
  uint32_t state = 77;
  FillRandom(reference, state, 7, false);
  for (int32_t y = 0; y < 38; y++)
    memcpy(&moved.bytes[(y * 48 + 3) * 4], &reference.bytes[(y + 2) * 48 * 4], 45 * 4);
  TestPicture gradient = MakePicture(88, 88, 40, 40), black = MakePicture(8, 8, 0, 0);
  Fill(black, 0, 0, 0, 255);
  const std::string head = "Recherche de la meilleure translation : \n" + std::string(50, '-') +
                           "\n(Temps Phase1 : #)\n";
  for (const auto& c : cases) {
    auto level = [&c](int32_t at) { return (unsigned char)(20 * (c.picture < 0 ? 10 - at : at)); };
    for (int32_t i = 0; i < 88 * 88; i++)
      SetPixel(gradient, i % 88, i / 88, level(i % 88 / 8), level(i / 88 / 8), 0, 255);
    Range() = c.range;
    Settings.ShiftStep = c.step, Settings.TranslationFraction = c.picture ? 1 : 3;
    Image top = {black.bytes.data(), 8, c.picture == 2 ? 4 : 8, 0, 0};
    std::string console = c.picture ? Run(SearchTranslation, top, gradient.image)
                                    : Run(SearchRotation, moved.image, reference.image);
    size_t at = console.find("Phase1 : ") + 9, end = console.find_first_not_of("0123456789", at);
    if (at > 9 && end > at) console = console.substr(0, at) + "#" + console.substr(end);  // seconds
    EXPECT_EQ(console, (c.picture ? head : "") + HEAD + "\n" + Delta(c.dx, c.dy) +
                           (strstr(c.line, "Non") ? WARNING : "")) << c.name;
    EXPECT_EQ(log, c.line) << c.name;
    EXPECT_EQ(Range(), c.range) << c.name;
    EXPECT_TRUE(c.picture || !memcmp(Current.pixels + 384, &reference.bytes[384], 180)) << c.name;
  }
}

// Random cases with many placements that do not overlap: skipping runs of them keeps the winner.
TEST_F(SearchTest, SkippingRunsWithoutOverlapKeepsTheLiteralWinner) {
  uint32_t seed = 9127u, state = seed;
  printf("seed %u\n", seed);
  auto random = [&state](int32_t n) { return (int32_t)(NextRandom(state) % (uint32_t)n); };
  int noOverlapWinners = 0;
  for (int trial = 0; trial < 600; trial++) {
    bool translation = trial % 3 == 2;  // on copies reduced by 8: sizes and shifts 5 times larger
    int32_t k = translation ? 5 : 1, kind = random(3), w = 1 + random(20 * k),
            h = 1 + random(20 * k), cw = 1 + random(24 * k), ch = 1 + random(24 * k);
    TestPicture reference = MakePicture(w, h, 0, 0), current = MakePicture(cw, ch, 0, 0);
    reference.image.x0 = random(30 * k) - 5 * k, reference.image.y0 = random(30 * k) - 5 * k;
    current.image.x0 = random(cw + 1), current.image.y0 = random(ch + 1);
    for (TestPicture* p : {&reference, &current}) FillRandom(*p, state, kind ? 6 : 2, kind == 1);
    if (kind == 2) Fill(current, 255, 255, 255, 255);  // nothing matches: no overlap wins
    int32_t minX = random(40 * k) - 35 * k, maxX = minX + random(55 * k) - 3 * k,
            minY = random(40 * k) - 35 * k, maxY = minY + random(55 * k) - 3 * k;
    Range() = Quad(minX, maxX, minY, maxY);
    Settings.ShiftStep = translation ? 1000 : 1 + random(6);
    Settings.TranslationFraction = 1 + random(3);
    int64_t shift[2] = {0, 0};
    noOverlapWinners += LiteralShifts(current.image, reference.image, translation, shift) == 0.05f;
    EXPECT_NE(Run(translation ? SearchTranslation : SearchRotation, current.image, reference.image)
                  .find(Delta(shift[0], shift[1])), std::string::npos) << "trial " << trial;
  }
  EXPECT_GT(noOverlapWinners, 200);  // the trials do reach the first placements of skipped runs
}

}  // namespace
