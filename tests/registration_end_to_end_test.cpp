// Registration of generated sequences by the kelvarion process: poses against the truth, shift.lst, console.
#include <gtest/gtest.h>

#include <cmath>

#include "sample_sequence.h"

namespace {

// The console of script.txt taking src<i> to <result><i> for each line of shift.lst, over -range..range
// degrees and shifts up to `shift`, into composite.bmp; results under nodir/ cannot be written. Over several
// angles an image prints 17 stars for the coarse ones, five refinement passes of three and theta; at one
// angle the coarse translation phase comes first and no star.
std::string Console(const Sample& s, const std::string& result, int range, int shift) {
  char setup[256], theta[64];
  snprintf(setup, sizeof setup, "Angle min=%f  Angle max=%f  Resolution=1.000000  \n"
           "Decalage global maximum=%d   pas=1  \nImage compositee: composite.bmp\n"
           "Chargement du fichier reference.bmp", (double)-range, (double)range, shift);
  std::string ruler = std::string(50, '-') + "\n", images;
  std::string echo = "Image de reference: reference.bmp\n"
                     "Nom generique de la sequence entree: src   sortie: " + result + "   Debut=1  Fin=" +
                     std::to_string(s.log.size()) + "\n";
  for (size_t i = 1; i <= s.log.size(); i++) {
    const Pose& l = s.log[i - 1];
    std::string source = "src" + std::to_string(i) + ".bmp", saved = result + std::to_string(i) + ".bmp";
    snprintf(theta, sizeof theta, "\ntheta=%f  ", l.angle);
    echo += "source: " + source + " -> resultat: " + saved + "\n";
    images += "\n" + std::string(50, '*') + "\nTraitement de l'image " + std::to_string(i) + " (" + source +
              ")\nChargement du fichier " + source +
              (range ? "" : "Recherche de la meilleure translation : \n" + ruler + "(Temps Phase1 : #)\n") +
              "Ajustement global : \n" + ruler + (range ? std::string(17 + 5 * 3, '*') + theta : "\n") +
              "DeltaX=" + std::to_string(l.dx) + "   DeltaY=" + std::to_string(l.dy) + "\n" +
              (l.nonOptimal ? "\n!!! Attention : la valeur maximum de decalage autoris\x8E"
                              "e a ete atteinte.\n" : "") +
              "Temps total de calcul pour l'image: # secondes\nSauvegarde d'une image " + saved +
              (saved.starts_with("nodir/")
                   ? "\nErreur : impossible d'ecrire le fichier " + saved + " (No such file or directory)\n"
                   : " FIN\n");
  }
  return BANNER + ParseEcho("script.txt", echo + setup) + images + "Sauvegarde de l'image compositee : "
         "composite.bmp\nSauvegarde d'une image composite.bmp FIN\n" + END_OF_RUN;
}

TEST(RegistrationEndToEnd, FixedAngleShiftsMatchTheTruthWithinOnePixel) {
  Sample s;  // shifts beyond 10 are found only by narrowing around a coarse shift other than zero
  ASSERT_TRUE(s.Generate("--count 6 --seed 5 --scene planet --max-angle 0 --max-shift 12 --translation 20"));
  ASSERT_EQ(s.Run(), 0) << s.run.output;
  ASSERT_TRUE(s.truth.size() == 6 && s.log.size() == 6);
  for (size_t i = 0; i < 6; i++) EXPECT_TRUE(s.log[i].Near(s.truth[i])) << i + 1 << ": " << s.log[i].text;
}

// True shifts reach 4 while the search covers -3..3: the images truly 2 pixels or less off match the truth,
// and the marks come exactly on the edge, each with the console warning right after the shift.
TEST(RegistrationEndToEnd, RotatedSequenceMatchesTheTruthInsideAndIsMarkedOnTheEdge) {
  Sample s;
  ASSERT_TRUE(s.Generate("--count 10 --width 320 --height 240 --seed 46 --max-angle 2 --angle-range 3"
                         " --max-shift 4 --translation 3"));
  ASSERT_EQ(s.Run(), 0) << s.run.output;
  EXPECT_EQ(MaskTimes(s.run.output), Console(s, "res", 3, 3));
  ASSERT_TRUE(s.truth.size() == 10 && s.log.size() == 10);
  int seen = 0, inside = 0;  // bits: each bound met with the other shift inside, and 16 for one off the edges
  for (size_t i = 0; i < 10; i++) {
    const Pose &l = s.log[i], &t = s.truth[i];
    int edges = (l.dx == -3) | (l.dx == 3) << 1 | (l.dy == -3) << 2 | (l.dy == 3) << 3;
    EXPECT_TRUE(l.wellFormed && std::abs(l.dx) <= 3 && std::abs(l.dy) <= 3 && l.nonOptimal == (edges != 0))
        << l.text;
    if ((edges & (edges - 1)) == 0) seen |= edges == 0 ? 16 : edges;
    if (std::abs(t.dx) > 2 || std::abs(t.dy) > 2) continue;
    inside++;
    EXPECT_TRUE(l.Near(t) && std::fabs(l.angle - t.angle) <= 1.0) << i + 1 << ": " << l.text << l.angle;
  }
  EXPECT_EQ(seen, 31);
  EXPECT_EQ(inside, 4);
}

TEST(RegistrationEndToEnd, FixedAngleConsoleByteForByteWithUnwritableResults) {
  Sample s;
  ASSERT_TRUE(s.Generate("--count 2 --seed 4 --scene planet --max-angle 0 --max-shift 5"));
  EXPECT_EQ(s.Run("Reference reference.bmp\nSourcesbmp src nodir/res 1 2\nAngle 0 0 1\nTranslation 10 1\n"
                  "Compositage composite.bmp\n"), 1);
  for (const Pose& l : s.log) EXPECT_TRUE(l.wellFormed) << l.text;
  EXPECT_EQ(MaskTimes(s.run.output), Console(s, "nodir/res", 0, 10));
}

}  // namespace
