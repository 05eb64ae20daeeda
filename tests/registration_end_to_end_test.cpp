// Registration of whole sequences from the sample generator, run as the
// kelvarion process: the shifts and angles found against the true poses, the
// lines of shift.lst and their "Non optimal" mark, the console byte for byte,
// and a result file that cannot be written.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "run_process.h"
#include "sample_sequence.h"

namespace {

const std::string BANNER =
    "**************************************\n"
    "****        Kelvarion v2.1        ****\n"
    "****   Recalage et compositage    ****\n"
    "****        24 Avril 2002         ****\n"
    "**************************************\n"
    "****        Portage Linux         ****\n"
    "****    d'images astronomiques    ****\n"
    "**************************************\n"
    "\n";
const std::string END_OF_RUN = "\nTemps pour l'ensemble du calcul: # secondes\nFin de l'execution de Kelvarion\n";
const std::string RULER = std::string(50, '-') + "\n";
const std::string EDGE_WARNING =
    "\n!!! Attention : la valeur maximum de decalage autoris\x8E"
    "e a ete atteinte.\n";

std::string ParseEcho(const std::string& scriptPath, const std::string& echo) {
  return "Lecture des parametres\n\nFichier de script : " + scriptPath + "\n\n\n" + echo;
}

std::string SourcesEcho(const std::string& sourceStem, const std::string& resultStem, int count) {
  std::string echo = "Nom generique de la sequence entree: " + sourceStem + "   sortie: " + resultStem +
                     "   Debut=1  Fin=" + std::to_string(count) + "\n";
  for (int i = 1; i <= count; i++)
    echo += "source: " + sourceStem + std::to_string(i) + ".bmp -> resultat: " + resultStem + std::to_string(i) +
            ".bmp\n";
  return echo;
}

// From the separator of image i to the end of its loading message.
std::string ImageHeader(int i, const std::string& source) {
  return "\n" + std::string(50, '*') + "\nTraitement de l'image " + std::to_string(i) + " (" + source +
         ")\nChargement du fichier " + source;
}

std::string Shift(int dx, int dy) { return "DeltaX=" + std::to_string(dx) + "   DeltaY=" + std::to_string(dy) + "\n"; }

// The fixed-angle global stage: the coarse phase on reduced copies, then the
// search at the one angle, which prints no progress star.
std::string TranslationSearchText(const ShiftLine& logged) {
  return "Recherche de la meilleure translation : \n" + RULER + "(Temps Phase1 : #)\n" + "Ajustement global : \n" +
         RULER + "\n" + Shift(logged.dx, logged.dy) + (logged.nonOptimal ? EDGE_WARNING : "");
}

std::string Repeat(const std::string& text, int times) {
  std::string repeated;
  for (int i = 0; i < times; i++) repeated += text;
  return repeated;
}

std::string ImageTime() { return "Temps total de calcul pour l'image: # secondes\n"; }

// Everything the run prints for one source image, from its separator to its
// save line.
std::string FixedAngleImageText(int i, const std::string& source, const std::string& result, const ShiftLine& logged) {
  return ImageHeader(i, source) + TranslationSearchText(logged) + ImageTime() + "Sauvegarde d'une image " + result +
         " FIN\n";
}

// The processor times are the only bytes that vary between runs: each number
// after one of the three time labels becomes "#".
std::string MaskProcessorTimes(const std::string& console) {
  static const char* const labels[] = {"Temps total de calcul pour l'image: ", "Temps pour l'ensemble du calcul: ",
                                       "(Temps Phase1 : "};
  std::string masked = console;
  for (const char* label : labels) {
    const std::string text = label;
    for (size_t at = masked.find(text); at != std::string::npos; at = masked.find(text, at)) {
      at += text.size();
      size_t end = at;
      while (end < masked.size() && masked[end] >= '0' && masked[end] <= '9') end++;
      if (end > at) masked.replace(at, end - at, "#");
    }
  }
  return masked;
}

// The lines "theta=%f  DeltaX=%i   DeltaY=%i\n" of a run, in order; ok is
// false for a line that starts so but does not have that form.
struct ThetaLine {
  bool ok;
  std::string theta;
  int dx;
  int dy;
};

std::vector<ThetaLine> FindThetaLines(const std::string& console) {
  std::vector<ThetaLine> lines;
  for (size_t at = console.find("theta="); at != std::string::npos; at = console.find("theta=", at)) {
    at += 6;
    size_t start = at;
    if (at < console.size() && console[at] == '-') at++;
    size_t digits = at;
    while (at < console.size() && console[at] >= '0' && console[at] <= '9') at++;
    bool ok = at > digits && ReadLiteral(console, at, ".");
    size_t decimals = at;
    while (at < console.size() && console[at] >= '0' && console[at] <= '9') at++;
    ThetaLine line = {ok && at - decimals == 6, console.substr(start, at - start), 0, 0};
    line.ok = line.ok && ReadLiteral(console, at, "  DeltaX=") && ReadInteger(console, at, line.dx) &&
              ReadLiteral(console, at, "   DeltaY=") && ReadInteger(console, at, line.dy) &&
              ReadLiteral(console, at, "\n");
    lines.push_back(line);
  }
  return lines;
}

bool WithinOnePixel(const ShiftLine& found, const TruePose& truth) {
  return std::abs(found.dx - truth.dx) <= 1 && std::abs(found.dy - truth.dy) <= 1;
}

// --- The values the rotation search can print, worked out from its rules ---

const double DEGREE = 0.017453292522222223;  // pi / 180 with pi as 3.141592654
const double HALF_DEGREE = 0.008726646261111111;
const double INVERSE_PI = 0.31830988614222805;
const float ONE_THIRD = 0.33333334f;

float ScriptAngle(double degrees) { return (float)((double)(float)degrees * DEGREE); }

// The coarse angles tried from min to max: one degree added per step, each sum
// rounded to a float, while the angle does not exceed max.
std::vector<float> CoarseAngles(float min, float max) {
  std::vector<float> angles;
  for (float angle = min; angle <= max; angle = (float)((double)angle + DEGREE)) angles.push_back(angle);
  return angles;
}

// Follows every outcome of the score comparisons of the refinement from one
// coarse angle, collecting the theta text each path would print and the
// number of passes each path takes.
void RefinementOutcomes(float lo, float hi, float best, float resolution, int passes, std::set<std::string>& thetas,
                        std::set<int>& passCounts) {
  float width = (float)((double)hi - lo);
  if (!(width > resolution * 0.5)) {
    char text[64];
    snprintf(text, sizeof text, "%f", ((double)best * 180.0) * INVERSE_PI);
    thetas.insert(text);
    passCounts.insert(passes);
    return;
  }
  float third = (float)((double)width * ONE_THIRD);
  float a1 = (float)((double)lo + third);
  float twice = (float)(2.0 * width);
  float twoThirds = (float)((double)twice * ONE_THIRD);
  float a2 = (float)((double)lo + twoThirds);
  RefinementOutcomes(a1, hi, a1, resolution, passes + 1, thetas, passCounts);  // second third scored lower
  RefinementOutcomes(lo, a2, a2, resolution, passes + 1, thetas, passCounts);  // otherwise
}

// Fixed-angle sequences: the coarse phase on copies reduced to one eighth,
// then the search on +-10 around eight times its result. The planet scene
// keeps its structure when reduced, which the coarse phase needs: it decimates
// without averaging, so the small stars of the star field can vanish from the
// reduced copies. Shifts of up to 12 with "Translation 20" give the coarse
// phase shifts of -2 to 2, so the narrowing runs around coarse shifts other
// than zero.
struct FixedAngleCase {
  const char* name;
  const char* maxShift;
  const char* translation;
};

TEST(RegistrationEndToEnd, FixedAngleShiftsMatchTheTruthWithinOnePixel) {
  const FixedAngleCase cases[] = {
      {"shifts up to 5, Translation 10", "5", "10"},
      {"shifts up to 12, Translation 20", "12", "20"},
  };
  for (const FixedAngleCase& c : cases) {
    SCOPED_TRACE(c.name);
    SampleDirectory dir;
    ASSERT_TRUE(GenerateSample(dir.path, {"--count", "6", "--width", "240", "--height", "180", "--seed", "1",
                                          "--scene", "planet", "--max-angle", "0", "--angle-range", "0",
                                          "--max-shift", c.maxShift, "--translation", c.translation,
                                          "--no-composite"}));
    ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"});
    ASSERT_EQ(run.exitCode, 0) << run.output;

    std::vector<TruePose> truth = ReadTruth(dir.File("truth.txt"));
    std::vector<ShiftLine> log = ReadShiftLog(dir.File("shift.lst"));
    ASSERT_EQ(truth.size(), 6u);
    ASSERT_EQ(log.size(), truth.size());
    int exact = 0;
    for (size_t i = 0; i < truth.size(); i++) {
      ASSERT_TRUE(log[i].wellFormed) << "line " << i + 1 << ": \"" << log[i].text << "\"";
      EXPECT_TRUE(WithinOnePixel(log[i], truth[i]))
          << "image " << i + 1 << ": found (" << log[i].dx << ", " << log[i].dy << "), true (" << truth[i].dx
          << ", " << truth[i].dy << ")";
      if (log[i].dx == truth[i].dx && log[i].dy == truth[i].dy) exact++;
    }
    printf("\nfixed angle, %s: %d of %zu shifts exact\n", c.name, exact, truth.size());
  }
}

// Sources turned by up to 2 degrees and moved by at most a pixel, searched
// over -3 to 3 degrees. The angle is refined on the full picture at zero
// shift, so it is only trustworthy when the true shift is this small. The
// coarse phase scores a quarter of each side around the centre; on a star
// field that part can hold too few stars to fix the angle, and this sequence
// is one whose centre holds enough of them.
TEST(RegistrationEndToEnd, RotatedSequenceAnglesAndShiftsMatchTheTruth) {
  SampleDirectory dir;
  ASSERT_TRUE(GenerateSample(dir.path, {"--count", "5", "--width", "320", "--height", "240", "--seed", "2",
                                        "--max-angle", "2", "--angle-range", "3", "--max-shift", "1",
                                        "--translation", "3", "--no-composite"}));
  ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"});
  ASSERT_EQ(run.exitCode, 0) << run.output;

  std::vector<TruePose> truth = ReadTruth(dir.File("truth.txt"));
  std::vector<ShiftLine> log = ReadShiftLog(dir.File("shift.lst"));
  ASSERT_EQ(truth.size(), 5u);
  ASSERT_EQ(log.size(), truth.size());

  std::vector<double> thetas;
  for (const ThetaLine& line : FindThetaLines(run.output)) {
    size_t i = thetas.size();
    ASSERT_TRUE(line.ok) << "image " << i + 1;
    ASSERT_LT(i, log.size());
    thetas.push_back(std::stod(line.theta));
    EXPECT_EQ(line.dx, log[i].dx) << "image " << i + 1;
    EXPECT_EQ(line.dy, log[i].dy) << "image " << i + 1;
  }
  ASSERT_EQ(thetas.size(), truth.size());
  double worstAngle = 0.0;
  for (size_t i = 0; i < truth.size(); i++) {
    ASSERT_TRUE(log[i].wellFormed) << "line " << i + 1 << ": \"" << log[i].text << "\"";
    EXPECT_TRUE(WithinOnePixel(log[i], truth[i]))
        << "image " << i + 1 << ": found (" << log[i].dx << ", " << log[i].dy << "), true (" << truth[i].dx << ", "
        << truth[i].dy << ")";
    // Within the angular resolution of the script, one degree.
    EXPECT_LE(std::fabs(thetas[i] - truth[i].angleDegrees), 1.0)
        << "image " << i + 1 << ": theta " << thetas[i] << ", true " << truth[i].angleDegrees;
    worstAngle = std::max(worstAngle, std::fabs(thetas[i] - truth[i].angleDegrees));
    printf("\nrotation: image %zu true %.1f (%d, %d) found %.6f (%d, %d)\n", i + 1, truth[i].angleDegrees, truth[i].dx,
           truth[i].dy, thetas[i], log[i].dx, log[i].dy);
  }
  RecordProperty("worst_angle_error_millidegrees", (int)std::lround(worstAngle * 1000.0));
}

// "Non optimal" marks a best shift on the edge of the range in force during
// the search, and comes with the console warning right after the shift line.
struct EdgeCase {
  const char* name;
  std::vector<std::string> options;
  const char* shiftLinePrefix;  // what precedes "DeltaX=" on the shift line
  int edge;                     // the range searched is -edge..edge on both axes
};

TEST(RegistrationEndToEnd, NonOptimalMarkFollowsTheEdgeOfTheRangeSearched) {
  const EdgeCase cases[] = {
      // An angle range: the rotation search runs on the script's range, +-3,
      // while the true shifts reach 5.
      {"rotation search on the script's range",
       {"--count", "8", "--width", "240", "--height", "180", "--seed", "1", "--max-angle", "0", "--angle-range", "1",
        "--max-shift", "5", "--translation", "3", "--no-composite"},
       "  ",
       3},
      // A fixed angle: "Translation 3" gives the coarse phase the single shift
      // (0, 0), so the search runs on -10..10, and true shifts reach 13.
      {"translation search on the narrowed range",
       {"--count", "8", "--width", "240", "--height", "180", "--seed", "7", "--max-angle", "0", "--angle-range", "0",
        "--max-shift", "13", "--translation", "3", "--no-composite"},
       "\n",
       10},
  };
  for (const EdgeCase& c : cases) {
    SCOPED_TRACE(c.name);
    SampleDirectory dir;
    ASSERT_TRUE(GenerateSample(dir.path, c.options));
    ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    std::vector<TruePose> truth = ReadTruth(dir.File("truth.txt"));
    std::vector<ShiftLine> log = ReadShiftLog(dir.File("shift.lst"));
    ASSERT_EQ(log.size(), truth.size());
    int marked = 0;
    bool sidesMetAlone[4] = {false, false, false, false};  // dx = -edge, dx = edge, dy = -edge, dy = edge
    for (size_t i = 0; i < log.size(); i++) {
      const ShiftLine& line = log[i];
      ASSERT_TRUE(line.wellFormed) << "line " << i + 1 << ": \"" << line.text << "\"";
      EXPECT_LE(std::abs(line.dx), c.edge) << "image " << i + 1;
      EXPECT_LE(std::abs(line.dy), c.edge) << "image " << i + 1;
      bool onEdge = std::abs(line.dx) == c.edge || std::abs(line.dy) == c.edge;
      EXPECT_EQ(line.nonOptimal, onEdge) << "image " << i + 1 << ": \"" << line.text << "\"";
      if (std::abs(line.dy) < c.edge) {
        if (line.dx == -c.edge) sidesMetAlone[0] = true;
        if (line.dx == c.edge) sidesMetAlone[1] = true;
      }
      if (std::abs(line.dx) < c.edge) {
        if (line.dy == -c.edge) sidesMetAlone[2] = true;
        if (line.dy == c.edge) sidesMetAlone[3] = true;
      }

      std::string section = ImageSection(MaskProcessorTimes(run.output), (int)i + 1, (int)log.size());
      ASSERT_FALSE(section.empty()) << "image " << i + 1;
      std::string shiftLine = c.shiftLinePrefix + Shift(line.dx, line.dy);
      size_t at = section.find(shiftLine);
      ASSERT_NE(at, std::string::npos) << "image " << i + 1 << "\n" << section;
      std::string afterShift = section.substr(at + shiftLine.size());
      std::string expectedAfter = (line.nonOptimal ? EDGE_WARNING : "") + ImageTime();
      EXPECT_EQ(afterShift.substr(0, expectedAfter.size()), expectedAfter) << "image " << i + 1;
      EXPECT_EQ(section.find("!!! Attention") != std::string::npos, line.nonOptimal) << "image " << i + 1;
      if (line.nonOptimal) marked++;
    }
    // The sequences are chosen so that each of the four bounds is met with
    // the other shift inside the range, and some image stays inside: the
    // checks above saw every way of being on the edge and the way of not.
    for (int side = 0; side < 4; side++) EXPECT_TRUE(sidesMetAlone[side]) << "side " << side;
    EXPECT_LT(marked, (int)log.size());
  }
}

// A two-image fixed-angle run with a composite, checked byte for byte against
// the text the run must print; only the processor times are masked.
TEST(RegistrationEndToEnd, FixedAngleRunConsoleByteForByte) {
  SampleDirectory dir;
  ASSERT_TRUE(GenerateSample(dir.path, {"--count", "2", "--width", "240", "--height", "180", "--seed", "4",
                                        "--scene", "planet", "--max-angle", "0", "--max-shift", "5"}));
  WriteWholeFile(dir.File("run.txt"),
                 "Reference reference.bmp\nSourcesbmp src res 1 2\nAngle 0 0 1\nTranslation 10 1\n"
                 "Compositage sum.bmp\n");
  ProcessResult run = RunKelvarionIn(dir.path, {"run.txt"});
  EXPECT_EQ(run.exitCode, 0);

  std::vector<TruePose> truth = ReadTruth(dir.File("truth.txt"));
  std::vector<ShiftLine> log = ReadShiftLog(dir.File("shift.lst"));
  ASSERT_EQ(truth.size(), 2u);
  ASSERT_EQ(log.size(), 2u);
  for (size_t i = 0; i < log.size(); i++) {
    ASSERT_TRUE(log[i].wellFormed) << "\"" << log[i].text << "\"";
    EXPECT_TRUE(WithinOnePixel(log[i], truth[i])) << "image " << i + 1;
  }

  std::string expected = BANNER +
                         ParseEcho("run.txt",
                                   "Image de reference: reference.bmp\n" + SourcesEcho("src", "res", 2) +
                                       "Angle min=0.000000  Angle max=0.000000  Resolution=1.000000  \n"
                                       "Decalage global maximum=10   pas=1  \n"
                                       "Image compositee: sum.bmp\n") +
                         "Chargement du fichier reference.bmp";
  for (int i = 1; i <= 2; i++)
    expected += FixedAngleImageText(i, "src" + std::to_string(i) + ".bmp", "res" + std::to_string(i) + ".bmp",
                                    log[(size_t)i - 1]);
  expected += "Sauvegarde de l'image compositee : sum.bmp\nSauvegarde d'une image sum.bmp FIN\n" + END_OF_RUN;
  EXPECT_EQ(MaskProcessorTimes(run.output), expected);
}

// A two-image run with "Angle -2 2 1": the coarse phase tries -2, -1, 0, 1 and
// 2 degrees and brings the progress to 17 stars, then five refinement passes
// of "***" take the interval of +-1.5 degrees down to half a degree, then the
// theta line.
TEST(RegistrationEndToEnd, RotationRunConsoleByteForByte) {
  SampleDirectory dir;
  ASSERT_TRUE(GenerateSample(dir.path, {"--count", "2", "--width", "240", "--height", "180", "--seed", "5",
                                        "--max-angle", "1.5", "--max-shift", "1", "--no-composite"}));
  WriteWholeFile(dir.File("run.txt"),
                 "Reference reference.bmp\nSourcesbmp src res 1 2\nAngle -2 2 1\nTranslation 3 1\n");
  ProcessResult run = RunKelvarionIn(dir.path, {"run.txt"});
  EXPECT_EQ(run.exitCode, 0);

  std::vector<ShiftLine> log = ReadShiftLog(dir.File("shift.lst"));
  ASSERT_EQ(log.size(), 2u);

  // Every theta the refinement can print, whatever coarse angle won and
  // whichever way each of its comparisons went.
  float min = ScriptAngle(-2.0);
  float max = ScriptAngle(2.0);
  float resolution = ScriptAngle(1.0);
  std::vector<float> coarse = CoarseAngles(min, max);
  ASSERT_EQ(coarse.size(), 5u);
  std::set<std::string> possibleThetas;
  std::set<int> passCounts;
  for (float angle : coarse) {
    float lo = (float)((double)angle - ((double)resolution + HALF_DEGREE));
    float hi = (float)((double)angle + ((double)resolution + HALF_DEGREE));
    RefinementOutcomes(lo, hi, angle, resolution, 0, possibleThetas, passCounts);
  }
  ASSERT_EQ(passCounts, std::set<int>{5});

  std::vector<std::string> printed;
  for (const ThetaLine& line : FindThetaLines(run.output)) printed.push_back(line.theta);
  ASSERT_EQ(printed.size(), 2u);

  std::string expected = BANNER +
                         ParseEcho("run.txt",
                                   "Image de reference: reference.bmp\n" + SourcesEcho("src", "res", 2) +
                                       "Angle min=-2.000000  Angle max=2.000000  Resolution=1.000000  \n"
                                       "Decalage global maximum=3   pas=1  \n") +
                         "Chargement du fichier reference.bmp";
  for (int i = 1; i <= 2; i++) {
    const std::string& theta = printed[(size_t)i - 1];
    EXPECT_EQ(possibleThetas.count(theta), 1u) << "image " << i << ": theta=" << theta;
    const ShiftLine& logged = log[(size_t)i - 1];
    ASSERT_TRUE(logged.wellFormed) << "\"" << logged.text << "\"";
    expected += ImageHeader(i, "src" + std::to_string(i) + ".bmp") + "Ajustement global : \n" + RULER +
                std::string(17, '*') + Repeat("***", 5) + "\n" + "theta=" + theta + "  " +
                Shift(logged.dx, logged.dy) + (logged.nonOptimal ? EDGE_WARNING : "") + ImageTime() +
                "Sauvegarde d'une image res" + std::to_string(i) + ".bmp FIN\n";
  }
  expected += END_OF_RUN;
  EXPECT_EQ(MaskProcessorTimes(run.output), expected);
}

// A result name in a directory that does not exist: the save is reported, the
// run goes on with the next image, and the exit status tells of the failure.
TEST(RegistrationEndToEnd, UnwritableResultIsReportedAndTheRunGoesOn) {
  SampleDirectory dir;
  ASSERT_TRUE(GenerateSample(dir.path, {"--count", "2", "--width", "240", "--height", "180", "--seed", "4",
                                        "--scene", "planet", "--max-angle", "0", "--max-shift", "3",
                                        "--no-composite"}));
  WriteWholeFile(dir.File("run.txt"), "Reference reference.bmp\nSourcesbmp src nodir/res 1 2\n");
  ProcessResult run = RunKelvarionIn(dir.path, {"run.txt"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.signal, 0);

  std::vector<ShiftLine> log = ReadShiftLog(dir.File("shift.lst"));
  ASSERT_EQ(log.size(), 2u);
  std::string expected = BANNER +
                         ParseEcho("run.txt", "Image de reference: reference.bmp\n" + SourcesEcho("src", "nodir/res", 2)) +
                         "Chargement du fichier reference.bmp";
  for (int i = 1; i <= 2; i++) {
    ASSERT_TRUE(log[(size_t)i - 1].wellFormed) << "\"" << log[(size_t)i - 1].text << "\"";
    std::string result = "nodir/res" + std::to_string(i) + ".bmp";
    expected += ImageHeader(i, "src" + std::to_string(i) + ".bmp") + TranslationSearchText(log[(size_t)i - 1]) +
                ImageTime() + "Sauvegarde d'une image " + result + "\n" + "Erreur : impossible d'ecrire le fichier " +
                result + " (No such file or directory)\n";
  }
  expected += END_OF_RUN;
  EXPECT_EQ(MaskProcessorTimes(run.output), expected);
  EXPECT_FALSE(FileExists(dir.File("nodir")));
}

}  // namespace
