#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "console_capture.h"
#include "register/register.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

namespace {

const double DEGREE = 0.017453292522222223;
const char* const RULER = "--------------------------------------------------\n";
const char* const EDGE_WARNING =
    "\n!!! Attention : la valeur maximum de decalage autoris\x8E"
    "e a ete atteinte.\n";

// Degrees as the script stores them: the value as a float, times pi/180, as a float.
float Radians(double degrees) { return (float)((double)(float)degrees * DEGREE); }

Image OwnedCopy(const Image& picture) {
  Image copy = picture;
  copy.pixels = AllocatePixels(picture.width, picture.height);
  memcpy(copy.pixels, picture.pixels, (size_t)picture.width * picture.height * 4);
  return copy;
}

void FillRandom(TestPicture& picture, uint32_t& state, uint32_t levels, bool someEmpty) {
  for (size_t i = 0; i < picture.bytes.size(); i += 4) {
    for (int k = 0; k < 3; k++)
      picture.bytes[i + k] = (unsigned char)(NextRandom(state) % levels * 40);
    picture.bytes[i + 3] = someEmpty && NextRandom(state) % 4 == 0 ? 0 : 255;
  }
}

std::string Captured(void (*stage)()) {
  ConsoleCapture capture = BeginCapture();
  stage();
  return EndCapture(capture);
}

struct Shift {
  int64_t dx;
  int64_t dy;
};

bool PrintedShift(const std::string& console, Shift& shift) {
  size_t at = console.rfind("DeltaX=");
  if (at == std::string::npos) return false;
  long long dx, dy;
  if (sscanf(console.c_str() + at, "DeltaX=%lld   DeltaY=%lld", &dx, &dy) != 2) return false;
  shift = Shift{dx, dy};
  return true;
}

class SearchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Settings = SettingsRecord{};
    Settings.AngleResolution = 1.0f;
    Settings.ShiftStep = 1;
    Settings.TranslationFraction = 6;
    Current = Image{nullptr, 0, 0, 0, 0};
    ShiftLog = tmpfile();
    ASSERT_NE(ShiftLog, nullptr);
  }
  void TearDown() override {
    ReleasePixels(Current);
    fclose(ShiftLog);
    ShiftLog = nullptr;
  }
  static std::string LogText() {
    fflush(ShiftLog);
    rewind(ShiftLog);
    std::string text;
    int c;
    while ((c = fgetc(ShiftLog)) != EOF) text.push_back((char)c);
    return text;
  }
  void SetRange(int32_t minX, int32_t maxX, int32_t minY, int32_t maxY) {
    Settings.ShiftMinX = minX;
    Settings.ShiftMaxX = maxX;
    Settings.ShiftMinY = minY;
    Settings.ShiftMaxY = maxY;
  }
};

// ---- console of the rotation search ----

struct AngleCase {
  const char* name;
  double minDegrees, maxDegrees;
  float resolution;
  int coarseStars;
  int passes;
};

TEST_F(SearchTest, StarsAndRefinementPasses) {
  const AngleCase cases[] = {
      {"-2..2 by 0.5: five angles, 17 stars, 6 passes", -2, 2, Radians(0.5), 17, 6},
      {"-5..5 by 0.5: 5 degrees not reached, 16 stars", -5, 5, Radians(0.5), 16, 6},
      {"-5..5 by 1: 5 passes", -5, 5, Radians(1), 16, 5},
      {"no coarse phase when min > max, resolution 0.5", 1, -1, Radians(0.5), 0, 6},
      {"no coarse phase, resolution 1", 1, -1, Radians(1), 0, 5},
      {"no coarse phase, resolution 0.5 rad", 1, -1, 0.5f, 0, 4},
      {"one degree range: two angles", 0, 1, Radians(1), 17, 5},
  };
  TestPicture reference = MakePicture(40, 40, 20, 20);
  uint32_t state = 41;
  FillRandom(reference, state, 6, false);
  for (const AngleCase& c : cases) {
    Settings.AngleMin = Radians(c.minDegrees);
    Settings.AngleMax = Radians(c.maxDegrees);
    Settings.AngleResolution = c.resolution;
    Reference = reference.image;
    Current = OwnedCopy(reference.image);
    std::string console = Captured(SearchRotation);
    std::string expected = std::string("Ajustement global : \n") + RULER +
                           std::string(c.coarseStars + 3 * c.passes, '*') + "\ntheta=";
    EXPECT_EQ(console.substr(0, expected.size()), expected) << c.name;
    EXPECT_EQ(LogText(), "") << c.name;  // single-point shift range
    ReleasePixels(Current);
  }
}

// The refinement when every pair of thirds scores alike: s2 >= s1 keeps a2 each
// pass, every intermediate rounded to float.
float UpperThirdAngle(float start) {
  float lo = (float)(start - ((double)Settings.AngleResolution + 0.008726646261111111));
  float hi = (float)(start + ((double)Settings.AngleResolution + 0.008726646261111111));
  float width = (float)((double)hi - lo);
  float best = start;
  while (width > Settings.AngleResolution * 0.5) {
    float twice = (float)(2.0 * width);
    hi = (float)((double)lo + (float)((double)twice * 0.33333334f));
    best = hi;
    width = (float)((double)hi - lo);
  }
  return best;
}

struct EqualScoreCase {
  const char* name;
  unsigned char blue, green;  // of the reference; the current is (90, 90, 90)
  bool floatAboveScore;       // the stored best, rounded, lies above the double score
  double coarseDegrees;
};

// Every coarse angle scores exactly alike on these pictures (the reference only
// meets the middle of each patch). A later equal score wins only when the best,
// stored as a float, rounded above the double score.
TEST_F(SearchTest, EqualScoresAcrossAngles) {
  const EqualScoreCase cases[] = {
      {"score exact in a float: the first angle stays", 90, 90, false, -2},
      {"score rounded up in a float: each later equal score wins", 80, 100, true, 2},
  };
  TestPicture current = MakePicture(200, 200, 100, 100);
  Fill(current, 90, 90, 90, 255);
  TestPicture reference = MakePicture(10, 10, 5, 5);
  for (const EqualScoreCase& c : cases) {
    Fill(reference, c.blue, c.green, 90, 255);
    Settings.AngleMin = Radians(-2);
    Settings.AngleMax = Radians(2);
    Settings.AngleResolution = Radians(0.5);
    Image patch = RotatedPatch(current.image, 50, 50, Settings.AngleMin);
    double score = MatchScore(patch, reference.image);
    ReleasePixels(patch);
    ASSERT_EQ((float)score > score, c.floatAboveScore) << c.name;

    Reference = reference.image;
    Current = OwnedCopy(current.image);
    std::string console = Captured(SearchRotation);
    char line[96];
    snprintf(line, sizeof line, "\ntheta=%f  DeltaX=0   DeltaY=0\n",
             ((double)UpperThirdAngle(Radians(c.coarseDegrees)) * 180.0) * 0.31830988614222805);
    EXPECT_EQ(console,
              std::string("Ajustement global : \n") + RULER + std::string(17 + 18, '*') + line)
        << c.name;
    ReleasePixels(Current);
  }
}

// The reference is the picture turned by a known angle about its point, with no
// shift: the coarse angle and the refinement around it recover the turn.
TEST_F(SearchTest, RefinementFindsAKnownRotation) {
  TestPicture texture = MakePicture(320, 240, 160, 120);
  for (int32_t y = 0; y < 240; y++)
    for (int32_t x = 0; x < 320; x++)
      SetPixel(texture, x, y, (unsigned char)(128 + 100 * sin(x / 7.0) * cos(y / 9.0)),
               (unsigned char)(128 + 90 * cos(x / 11.0 + y / 13.0)),
               (unsigned char)(128 + 100 * sin(x / 17.0 - y / 5.0)), 255);
  const double truths[] = {2.3, -1.4, 0.4};
  for (double truth : truths) {
    Image turned = TransformImage(texture.image, Radians(truth), 0.0f, 0.0f);
    Settings.AngleMin = Radians(-3);
    Settings.AngleMax = Radians(3);
    Settings.AngleResolution = Radians(0.25);
    Reference = turned;
    Current = OwnedCopy(texture.image);
    std::string console = Captured(SearchRotation);
    double theta = 0.0;
    size_t at = console.find("theta=");
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(sscanf(console.c_str() + at, "theta=%lf", &theta), 1);
    EXPECT_NEAR(theta, truth, 0.25) << console;
    ReleasePixels(turned);
    ReleasePixels(Current);
  }
}

TEST_F(SearchTest, ZeroResolutionIsFatal) {
  Settings.AngleResolution = 0.0f;
  EXPECT_EXIT(
      {
        freopen("/dev/null", "r", stdin);
        dup2(2, 1);  // the messages go to standard output: let the matcher see them
        SearchRotation();
      },
      ::testing::KilledBySignal(SIGABRT),
      "^Ajustement global : \nErreur : resolution angulaire nulleErreur fatale, appuyez sur "
      "entree\\.\n"
      "Fatal error\\. Press return\\.\n");
}

TEST_F(SearchTest, StalledFloatsEndTheLoops) {
  TestPicture picture = MakePicture(12, 12, 6, 6);
  uint32_t state = 5;
  FillRandom(picture, state, 3, false);
  Reference = picture.image;
  // One degree no longer moves a float of 1e8, and the refinement interval is empty.
  Settings.AngleMin = 1e8f;
  Settings.AngleMax = 2e8f;
  Settings.AngleResolution = 1e-30f;
  Current = OwnedCopy(picture.image);
  char line[96];
  snprintf(line, sizeof line, "*\ntheta=%f  DeltaX=0   DeltaY=0\n",
           (1e8 * 180.0) * 0.31830988614222805);
  EXPECT_EQ(Captured(SearchRotation), std::string("Ajustement global : \n") + RULER + line);
  ReleasePixels(Current);

  // A resolution far below a float step of the angle: the passes stop when the width stalls.
  Settings.AngleMin = Radians(-1);
  Settings.AngleMax = Radians(1);
  Current = OwnedCopy(picture.image);
  std::string console = Captured(SearchRotation);
  EXPECT_NE(console.find("\ntheta="), std::string::npos);
  EXPECT_LT(console.size(), 1000u);
}

// ---- the shift found, the log line and the edge warning ----

// Current(x, y) = Reference(x - 3, y + 2): the best shift is (3, -2).
void MakeShiftedPair(TestPicture& reference, TestPicture& current, uint32_t seed) {
  uint32_t state = seed;
  FillRandom(reference, state, 7, false);
  FillRandom(current, state, 7, false);
  for (int32_t y = 0; y < current.image.height; y++)
    for (int32_t x = 0; x < current.image.width; x++) {
      int32_t rx = x - 3, ry = y + 2;
      if (rx < 0 || ry >= reference.image.height) continue;
      memcpy(&current.bytes[((size_t)y * current.image.width + x) * 4],
             &reference.bytes[((size_t)ry * reference.image.width + rx) * 4], 4);
    }
}

struct LogCase {
  const char* name;
  int32_t minX, maxX, minY, maxY;
  const char* logLine;
  bool warning;
};

TEST_F(SearchTest, LogLineAndEdgeWarning) {
  const LogCase cases[] = {
      {"inside the range", -5, 5, -5, 5, "3 -2 \n", false},
      {"on ShiftMaxX", -3, 3, -5, 5, "3 -2   Non optimal\n", true},
      {"on ShiftMinY", -5, 5, -2, 5, "3 -2   Non optimal\n", true},
      {"single point: no line", 3, 3, -2, -2, "", false},
      {"one axis single point still logs", 3, 3, -4, 4, "3 -2   Non optimal\n", true},
  };
  TestPicture reference = MakePicture(48, 40, 24, 20);
  TestPicture current = MakePicture(48, 40, 24, 20);
  MakeShiftedPair(reference, current, 77);
  Reference = reference.image;
  Settings.TranslationFraction = 3;
  for (const LogCase& c : cases) {
    SetRange(c.minX, c.maxX, c.minY, c.maxY);
    Current = OwnedCopy(current.image);
    std::string console = Captured(SearchRotation);
    std::string expected = std::string("Ajustement global : \n") + RULER +
                           "\nDeltaX=3   DeltaY=-2\n" + (c.warning ? EDGE_WARNING : "");
    EXPECT_EQ(console, expected) << c.name;
    EXPECT_EQ(LogText(), c.logLine) << c.name;
    // The registered picture lies on the reference wherever it has data.
    ASSERT_EQ(Current.width, 48);
    ASSERT_EQ(Current.height, 40);
    int mismatches = 0;
    for (int32_t y = 2; y < 40; y++)
      for (int32_t x = 0; x < 45; x++)
        if (memcmp(Current.pixels + (y * 48 + x) * 4, &reference.bytes[(y * 48 + x) * 4], 4) != 0)
          mismatches++;
    EXPECT_EQ(mismatches, 0) << c.name;
    ReleasePixels(Current);
    fclose(ShiftLog);
    ShiftLog = tmpfile();
  }
}

// Two placements match equally well: (-1, 1) and (1, -1). dx is the outer loop.
TEST_F(SearchTest, EqualScoresKeepTheFirstInLoopOrder) {
  TestPicture current = MakePicture(8, 8, 4, 4);
  Fill(current, 50, 50, 50, 255);
  TestPicture reference = MakePicture(20, 20, 10, 10);
  Fill(reference, 200, 10, 10, 255);
  // The 2 x 2 patch samples its row 0 (u = -1, 0; v = -1); placed at (dx, dy) it
  // faces reference row 10 - dy - 1, columns 10 - dx - 1 and 10 - dx.
  SetPixel(reference, 10, 8, 50, 50, 50, 255);
  SetPixel(reference, 11, 8, 50, 50, 50, 255);
  SetPixel(reference, 8, 10, 50, 50, 50, 255);
  SetPixel(reference, 9, 10, 50, 50, 50, 255);
  Reference = reference.image;
  Settings.TranslationFraction = 4;
  SetRange(-2, 2, -2, 2);
  Current = OwnedCopy(current.image);
  std::string console = Captured(SearchRotation);
  EXPECT_NE(console.find("\nDeltaX=-1   DeltaY=1\n"), std::string::npos) << console;
  EXPECT_EQ(LogText(), "-1 1 \n");
}

// ---- the skipped runs of placements without overlap ----

Shift LiteralCoarseSearch(const Image& current, const Image& reference, int32_t width,
                          int32_t height) {
  float best = 1e24f;
  Shift winner = {0, 0};
  for (float angle = Settings.AngleMin; angle <= Settings.AngleMax;
       angle = (float)(angle + DEGREE)) {
    Image patch = RotatedPatch(current, width, height, angle);
    for (int64_t dx = Settings.ShiftMinX; dx <= Settings.ShiftMaxX; dx += Settings.ShiftStep)
      for (int64_t dy = Settings.ShiftMinY; dy <= Settings.ShiftMaxY; dy += Settings.ShiftStep) {
        Image placed = patch;
        placed.x0 = (int32_t)(patch.x0 + dx);
        placed.y0 = (int32_t)(patch.y0 + dy);
        double score = MatchScore(placed, reference);
        if (score < best) {
          best = (float)score;
          winner = Shift{dx, dy};
        }
      }
    ReleasePixels(patch);
  }
  return winner;
}

TEST_F(SearchTest, SkippingRunsWithoutOverlapKeepsTheLiteralWinner) {
  const uint32_t seed = 9127u;
  printf("seed %u\n", seed);
  uint32_t state = seed;
  int noOverlapWinners = 0;
  for (int trial = 0; trial < 400; trial++) {
    TestPicture reference =
        MakePicture(1 + NextRandom(state) % 20, 1 + NextRandom(state) % 20, 0, 0);
    reference.image.x0 = (int32_t)(NextRandom(state) % 30) - 5;
    reference.image.y0 = (int32_t)(NextRandom(state) % 30) - 5;
    TestPicture current = MakePicture(1 + NextRandom(state) % 24, 1 + NextRandom(state) % 24, 0, 0);
    current.image.x0 = (int32_t)(NextRandom(state) % (current.image.width + 1));
    current.image.y0 = (int32_t)(NextRandom(state) % (current.image.height + 1));
    uint32_t kind = NextRandom(state) % 3;
    FillRandom(reference, state, kind == 0 ? 2 : 6, kind == 1);
    if (kind == 2)
      Fill(current, 255, 255, 255, 255);  // nothing matches: a placement without overlap wins
    else
      FillRandom(current, state, kind == 0 ? 2 : 6, kind == 1);
    Settings.ShiftStep = 1 + (int32_t)(NextRandom(state) % 6);
    Settings.ShiftMinX = (int32_t)(NextRandom(state) % 40) - 35;
    Settings.ShiftMaxX = Settings.ShiftMinX + (int32_t)(NextRandom(state) % 55) - 3;
    Settings.ShiftMinY = (int32_t)(NextRandom(state) % 40) - 35;
    Settings.ShiftMaxY = Settings.ShiftMinY + (int32_t)(NextRandom(state) % 55) - 3;
    Settings.TranslationFraction = 1 + (int32_t)(NextRandom(state) % 3);
    if (NextRandom(state) % 2 == 0) {
      Settings.AngleMin = Settings.AngleMax = 0.0f;
    } else {
      Settings.AngleMin = Radians((double)(NextRandom(state) % 5) - 2);
      Settings.AngleMax = Radians((double)(NextRandom(state) % 5) - 2);
    }
    int32_t fraction = Settings.AngleMin == Settings.AngleMax ? Settings.TranslationFraction : 4;
    int32_t width = current.image.width / fraction;
    int32_t height = current.image.height / fraction;
    Reference = reference.image;
    Shift expected = LiteralCoarseSearch(current.image, reference.image, width, height);
    Current = OwnedCopy(current.image);
    std::string console = Captured(SearchRotation);
    ReleasePixels(Current);
    Shift found;
    ASSERT_TRUE(PrintedShift(console, found)) << "trial " << trial;
    EXPECT_EQ(found.dx, expected.dx) << "trial " << trial;
    EXPECT_EQ(found.dy, expected.dy) << "trial " << trial;
    Image placed = RotatedPatch(current.image, width, height, Settings.AngleMin);
    placed.x0 += (int32_t)expected.dx;
    placed.y0 += (int32_t)expected.dy;
    if (MatchScore(placed, reference.image) == (double)0.05f) noOverlapWinners++;
    ReleasePixels(placed);
  }
  EXPECT_GT(noOverlapWinners, 20);  // the random cases do reach the skipped runs' first placements
}

TEST_F(SearchTest, HugeRangeEndsAtOnceWithTheLiteralWinner) {
  TestPicture reference = MakePicture(48, 40, 24, 20);
  TestPicture current = MakePicture(48, 40, 24, 20);
  MakeShiftedPair(reference, current, 78);
  Reference = reference.image;
  Settings.TranslationFraction = 3;
  SetRange(-2147483647, 2147483647, -2147483647, 2147483647);
  Current = OwnedCopy(current.image);
  std::string console = Captured(SearchRotation);
  EXPECT_NE(console.find("\nDeltaX=3   DeltaY=-2\n"), std::string::npos) << console;
  EXPECT_EQ(LogText(), "3 -2 \n");
  ReleasePixels(Current);

  // Every overlapping placement scores far above 0.05: the very first placement wins.
  TestPicture dark = MakePicture(40, 4, 20, 2);
  Fill(dark, 0, 0, 0, 255);
  TestPicture white = MakePicture(30, 30, 15, 15);
  Fill(white, 255, 255, 255, 255);
  Reference = white.image;
  Settings.TranslationFraction = 4;  // 10 x 1 patch: no empty row to score low
  Current = OwnedCopy(dark.image);
  console = Captured(SearchRotation);
  EXPECT_NE(console.find("\nDeltaX=-2147483647   DeltaY=-2147483647\n"), std::string::npos)
      << console;
  EXPECT_EQ(LogText(), "3 -2 \n-2147483647 -2147483647   Non optimal\n");
}

// ---- the translation search ----

// Current 8 x 8, reduced to one black pixel; the reference reduced to 11 x 11
// with point (5, 5), blue growing (or falling) with the column and green with
// the row, so the coarse search picks the last (or first) i and j it tries.
// With a fine step of 1000 only (8 I - 10, 8 J - 10) is scored and printed.
void MakeGradientPair(TestPicture& reference, TestPicture& current, bool rising) {
  Fill(current, 0, 0, 0, 255);
  for (int32_t y = 0; y < 88; y++)
    for (int32_t x = 0; x < 88; x++) {
      int32_t column = rising ? x / 8 : 10 - x / 8;
      int32_t row = rising ? y / 8 : 10 - y / 8;
      SetPixel(reference, x, y, (unsigned char)(20 * column), (unsigned char)(20 * row), 0, 255);
    }
}

struct CoarseRangeCase {
  const char* name;
  int32_t min, max;
  int32_t firstI, lastI;
};

TEST_F(SearchTest, CoarseShiftsTriedByTheTranslationSearch) {
  const CoarseRangeCase cases[] = {
      {"+-20: -2.5 truncates to -2, 3 exceeds 2.5", -20, 20, -2, 2},
      {"+-7: only 0", -7, 7, 0, 0},
      {"-20..7", -20, 7, -2, 0},
      {"negative maximum compared as a real number", -20, -12, -2, -2},
      {"zero range", 0, 0, 0, 0},
  };
  TestPicture reference = MakePicture(88, 88, 40, 40);
  TestPicture current = MakePicture(8, 8, 0, 0);
  for (const CoarseRangeCase& c : cases) {
    for (bool rising : {true, false}) {
      MakeGradientPair(reference, current, rising);
      Reference = reference.image;
      Settings.TranslationFraction = 1;
      Settings.ShiftStep = 1000;
      SetRange(c.min, c.max, c.min, c.max);
      Current = OwnedCopy(current.image);
      std::string console = Captured(SearchTranslation);
      int32_t chosen = rising ? c.lastI : c.firstI;  // smaller columns score lower when rising
      Shift found;
      ASSERT_TRUE(PrintedShift(console, found)) << c.name;
      EXPECT_EQ(found.dx, 8 * chosen - 10) << c.name << (rising ? " rising" : " falling");
      EXPECT_EQ(found.dy, 8 * chosen - 10) << c.name << (rising ? " rising" : " falling");
      EXPECT_EQ(Settings.ShiftMinX, c.min) << c.name;
      EXPECT_EQ(Settings.ShiftMaxX, c.max) << c.name;
      EXPECT_EQ(Settings.ShiftMinY, c.min) << c.name;
      EXPECT_EQ(Settings.ShiftMaxY, c.max) << c.name;
      ReleasePixels(Current);
    }
  }
}

TEST_F(SearchTest, TranslationConsoleAndNarrowedRange) {
  TestPicture reference = MakePicture(88, 88, 40, 40);
  TestPicture current = MakePicture(8, 8, 0, 0);
  MakeGradientPair(reference, current, true);
  Reference = reference.image;
  Settings.TranslationFraction = 1;
  SetRange(-24, 24, 0, 0);  // coarse best I = 3, J = 0: fine X range 14..34, Y -10..10
  // Step 20 reaches both ends of the 21 wide range, step 21 only its first value.
  const int32_t steps[] = {20, 21};
  const char* const expectedTails[] = {"\nDeltaX=34   DeltaY=10\n", "\nDeltaX=14   DeltaY=-10\n"};
  const char* const expectedLogs[] = {"34 10   Non optimal\n", "14 -10   Non optimal\n"};
  for (int k = 0; k < 2; k++) {
    Settings.ShiftStep = steps[k];
    Current = OwnedCopy(current.image);
    std::string console = Captured(SearchTranslation);
    std::string head =
        std::string("Recherche de la meilleure translation : \n") + RULER + "(Temps Phase1 : ";
    ASSERT_EQ(console.substr(0, head.size()), head);
    size_t close = console.find(")\n", head.size());
    ASSERT_NE(close, std::string::npos);
    for (size_t i = head.size(); i < close; i++)
      EXPECT_TRUE(isdigit((unsigned char)console[i])) << console;
    std::string tail =
        std::string(")\nAjustement global : \n") + RULER + expectedTails[k] + EDGE_WARNING;
    EXPECT_EQ(console.substr(close), tail);
    EXPECT_EQ(LogText(), expectedLogs[k]);
    EXPECT_EQ(Settings.ShiftMinX, -24);
    EXPECT_EQ(Settings.ShiftMaxX, 24);
    EXPECT_EQ(Settings.ShiftMinY, 0);
    EXPECT_EQ(Settings.ShiftMaxY, 0);
    ReleasePixels(Current);
    fclose(ShiftLog);
    ShiftLog = tmpfile();
  }
}

TEST_F(SearchTest, TranslationCoarseSearchKeepsTheLiteralWinner) {
  const uint32_t seed = 5501u;
  printf("seed %u\n", seed);
  uint32_t state = seed;
  for (int trial = 0; trial < 150; trial++) {
    TestPicture reference =
        MakePicture(8 + NextRandom(state) % 90, 8 + NextRandom(state) % 90, 0, 0);
    reference.image.x0 = (int32_t)(NextRandom(state) % 120) - 10;
    reference.image.y0 = (int32_t)(NextRandom(state) % 120) - 10;
    TestPicture current = MakePicture(8 + NextRandom(state) % 90, 8 + NextRandom(state) % 90, 0, 0);
    current.image.x0 = (int32_t)(NextRandom(state) % (current.image.width + 1));
    current.image.y0 = (int32_t)(NextRandom(state) % (current.image.height + 1));
    uint32_t kind = NextRandom(state) % 3;
    FillRandom(reference, state, kind == 0 ? 2 : 6, kind == 1);
    if (kind == 2)
      Fill(current, 255, 255, 255, 255);
    else
      FillRandom(current, state, kind == 0 ? 2 : 6, kind == 1);
    SetRange((int32_t)(NextRandom(state) % 300) - 250, 0, (int32_t)(NextRandom(state) % 300) - 250,
             0);
    Settings.ShiftMaxX = Settings.ShiftMinX + (int32_t)(NextRandom(state) % 400) - 20;
    Settings.ShiftMaxY = Settings.ShiftMinY + (int32_t)(NextRandom(state) % 400) - 20;
    Settings.ShiftStep = 1000;

    Image reduced = ScaleImage(current.image, 0.125f);
    Image reducedReference = ScaleImage(reference.image, 0.125f);
    float best = 1e24f;
    int64_t bestI = 0, bestJ = 0;
    for (int64_t i = (int64_t)(Settings.ShiftMinX * 0.125); i <= Settings.ShiftMaxX * 0.125; i++)
      for (int64_t j = (int64_t)(Settings.ShiftMinY * 0.125); j <= Settings.ShiftMaxY * 0.125;
           j++) {
        Image placed = reduced;
        placed.x0 = (int32_t)(reduced.x0 + i);
        placed.y0 = (int32_t)(reduced.y0 + j);
        double score = MatchScore(placed, reducedReference);
        if (score < best) {
          best = (float)score;
          bestI = i;
          bestJ = j;
        }
      }
    ReleasePixels(reduced);
    ReleasePixels(reducedReference);

    Reference = reference.image;
    Current = OwnedCopy(current.image);
    std::string console = Captured(SearchTranslation);
    ReleasePixels(Current);
    Shift found;
    ASSERT_TRUE(PrintedShift(console, found)) << "trial " << trial;
    EXPECT_EQ(found.dx, 8 * bestI - 10) << "trial " << trial;
    EXPECT_EQ(found.dy, 8 * bestJ - 10) << "trial " << trial;
  }
}

TEST_F(SearchTest, TranslationHugeRangeSaturatesTheNarrowedBounds) {
  // The reduced current has no rows, so nothing overlaps anywhere and the first
  // placement wins at both stages: I = J = trunc(-2147483647 / 8) = -268435455,
  // whose narrowed minimum (I - 1) * 8 - 2 lies below the 32-bit range.
  TestPicture current = MakePicture(40, 4, 20, 2);
  Fill(current, 0, 0, 0, 255);
  TestPicture reference = MakePicture(30, 30, 15, 15);
  Fill(reference, 255, 255, 255, 255);
  Reference = reference.image;
  Settings.TranslationFraction = 4;
  SetRange(-2147483647, 2147483647, -2147483647, 2147483647);
  Current = OwnedCopy(current.image);
  std::string console = Captured(SearchTranslation);
  EXPECT_NE(console.find("\nDeltaX=-2147483648   DeltaY=-2147483648\n"), std::string::npos)
      << console;
  EXPECT_EQ(LogText(), "-2147483648 -2147483648   Non optimal\n");
  EXPECT_EQ(Settings.ShiftMinX, -2147483647);
  EXPECT_EQ(Settings.ShiftMaxY, 2147483647);
  ReleasePixels(Current);

  // At the top: I = 268435455, narrowed maximum (I + 1) * 8 + 2 saturates; the
  // a wrapped bound would leave no shift at all; the fine step reaches no value
  // past the minimum 8 I - 10 = 2147483630.
  SetRange(2147483647, 2147483647, 0, 0);
  Settings.ShiftStep = 100;
  Current = OwnedCopy(current.image);
  console = Captured(SearchTranslation);
  EXPECT_NE(console.find("\nDeltaX=2147483630   DeltaY=-10\n"), std::string::npos) << console;
}

}  // namespace
