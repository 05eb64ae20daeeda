// Registration of generated sequences by the kelvarion process: poses against the truth, shift.lst, console.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "run_process.h"
#include "sample_sequence.h"

namespace {

const std::string RULER = std::string(50, '-') + "\n";
const std::string EDGE = "\n!!! Attention : la valeur maximum de decalage autoris\x8E" "e a ete atteinte.\n";

std::string Shift(const ShiftLine& l) {
  return "DeltaX=" + std::to_string(l.dx) + "   DeltaY=" + std::to_string(l.dy) + "\n" +
         (l.nonOptimal ? EDGE : "");
}

// Banner, echo of a script taking src<i> to <result><i>, i = 1..n, then the reference loading.
std::string RunHead(const std::string& script, const std::string& result, int n, const std::string& rest) {
  std::string echo = "Nom generique de la sequence entree: src   sortie: " + result + "   Debut=1  Fin=" +
                     std::to_string(n) + "\n";
  for (int i = 1; i <= n; i++)
    echo += "source: src" + std::to_string(i) + ".bmp -> resultat: " + result + std::to_string(i) + ".bmp\n";
  return BANNER + ParseEcho(script, "Image de reference: reference.bmp\n" + echo + rest) +
         "Chargement du fichier reference.bmp";
}

// All that image i prints, given the text of its search and the end of its save line.
std::string ImageText(int i, const std::string& search, const std::string& save) {
  std::string source = "src" + std::to_string(i) + ".bmp";
  return "\n" + std::string(50, '*') + "\nTraitement de l'image " + std::to_string(i) + " (" + source +
         ")\nChargement du fichier " + source + search + "Temps total de calcul pour l'image: # secondes\n" +
         "Sauvegarde d'une image " + save;
}

// The console of the generated script over -range..range degrees and shifts up to 3; thetas as printed.
std::string RotationConsole(const Sample& s, const std::string& range, std::vector<double>& thetas) {
  const std::string& out = s.run.output;
  for (size_t at = out.find("\ntheta="); at != std::string::npos; at = out.find("\ntheta=", at + 1))
    thetas.push_back(std::atof(out.c_str() + at + 7));
  std::string expected = RunHead("script.txt", "res", (int)s.log.size(),
                                 "Angle min=-" + range + ".000000  Angle max=" + range +
                                     ".000000  Resolution=1.000000  \nDecalage global maximum=3   pas=1  \n");
  for (size_t i = 0; i < s.log.size() && i < thetas.size(); i++) {
    char theta[64];
    snprintf(theta, sizeof theta, "%f", thetas[i]);
    // 17 stars for the coarse angles, then five refinement passes of three.
    std::string search = "Ajustement global : \n" + RULER + std::string(17, '*') + std::string(5 * 3, '*') +
                         "\ntheta=" + theta + "  " + Shift(s.log[i]);
    expected += ImageText((int)i + 1, search, "res" + std::to_string(i + 1) + ".bmp FIN\n");
  }
  return expected + END_OF_RUN;
}

TEST(RegistrationEndToEnd, FixedAngleShiftsMatchTheTruthWithinOnePixel) {
  Sample s;  // shifts beyond 10 are found only by narrowing around a coarse shift other than zero
  ASSERT_TRUE(s.Generate("--count 6 --seed 5 --scene planet --max-angle 0 --max-shift 12 --translation 20"
                         " --no-composite"));
  ASSERT_EQ(s.Run(), 0) << s.run.output;
  ASSERT_TRUE(s.truth.size() == 6 && s.log.size() == 6);
  for (size_t i = 0; i < 6; i++)
    EXPECT_TRUE(s.log[i].Matches(s.truth[i])) << "image " << i + 1 << ": " << s.log[i].text;
}

TEST(RegistrationEndToEnd, RotatedSequenceMatchesTheTruthAndPrintsItsSearch) {
  Sample s;
  ASSERT_TRUE(s.Generate("--count 5 --width 320 --height 240 --seed 2 --max-angle 2 --angle-range 3"
                         " --max-shift 1 --translation 3 --no-composite"));
  ASSERT_EQ(s.Run(), 0) << s.run.output;
  ASSERT_TRUE(s.truth.size() == 5 && s.log.size() == 5);
  std::vector<double> thetas;
  EXPECT_EQ(MaskTimes(s.run.output), RotationConsole(s, "3", thetas));
  ASSERT_EQ(thetas.size(), 5u);
  for (size_t i = 0; i < 5; i++) {
    EXPECT_TRUE(s.log[i].Matches(s.truth[i])) << "image " << i + 1 << ": " << s.log[i].text;
    EXPECT_LE(std::fabs(thetas[i] - s.truth[i].angleDegrees), 1.0) << "image " << i + 1;
  }
}

TEST(RegistrationEndToEnd, NonOptimalMarkAndWarningComeExactlyOnTheEdge) {
  Sample s;  // the rotation search covers -3..3 while the true shifts reach 5
  ASSERT_TRUE(s.Generate("--count 8 --seed 1 --max-angle 0 --angle-range 1 --max-shift 5 --translation 3"
                         " --no-composite"));
  ASSERT_EQ(s.Run(), 0) << s.run.output;
  ASSERT_EQ(s.log.size(), 8u);
  std::vector<double> thetas;
  EXPECT_EQ(MaskTimes(s.run.output), RotationConsole(s, "1", thetas));  // warning right after a marked shift
  int sides = 0;
  for (const ShiftLine& l : s.log) {
    EXPECT_TRUE(l.wellFormed && std::abs(l.dx) <= 3 && std::abs(l.dy) <= 3) << l.text;
    EXPECT_EQ(l.nonOptimal, std::abs(l.dx) == 3 || std::abs(l.dy) == 3) << l.text;
    if (std::abs(l.dy) < 3 && std::abs(l.dx) == 3) sides |= l.dx < 0 ? 1 : 2;
    if (std::abs(l.dx) < 3 && std::abs(l.dy) == 3) sides |= l.dy < 0 ? 4 : 8;
    if (!l.nonOptimal) sides |= 16;
  }
  EXPECT_EQ(sides, 31);  // each bound met with the other shift inside, and an image off the edges
}

TEST(RegistrationEndToEnd, FixedAngleConsoleByteForByteWithUnwritableResults) {
  Sample s;
  ASSERT_TRUE(s.Generate("--count 2 --seed 4 --scene planet --max-angle 0 --max-shift 5"));
  EXPECT_EQ(s.Run("Reference reference.bmp\nSourcesbmp src nodir/res 1 2\nAngle 0 0 1\nTranslation 10 1\n"
                  "Compositage sum.bmp\n"),
            1);
  ASSERT_EQ(s.log.size(), 2u);
  std::string expected = RunHead("run.txt", "nodir/res", 2,
                                 "Angle min=0.000000  Angle max=0.000000  Resolution=1.000000  \n"
                                 "Decalage global maximum=10   pas=1  \nImage compositee: sum.bmp\n");
  for (int i = 1; i <= 2; i++) {
    const ShiftLine& l = s.log[(size_t)i - 1];
    std::string result = "nodir/res" + std::to_string(i) + ".bmp";
    EXPECT_TRUE(l.wellFormed) << l.text;
    // The coarse phase on reduced copies, then the search at the one angle, which prints no star.
    std::string search = "Recherche de la meilleure translation : \n" + RULER + "(Temps Phase1 : #)\n" +
                         "Ajustement global : \n" + RULER + "\n" + Shift(l);
    expected += ImageText(i, search, result + "\nErreur : impossible d'ecrire le fichier " + result +
                                         " (No such file or directory)\n");
  }
  expected += "Sauvegarde de l'image compositee : sum.bmp\nSauvegarde d'une image sum.bmp FIN\n";
  EXPECT_EQ(MaskTimes(s.run.output), expected + END_OF_RUN);
}

}  // namespace
