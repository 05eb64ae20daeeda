#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "console_capture.h"
#include "run/settings.h"
#include "run_process.h"

namespace {

const std::string TOO_MANY = "Trop d'images \x88 traiter\n";
const std::string LIBRE = "La taille de sortie des images peut \x90tre differente de la taille d'origine\n";
const std::string FIXE = "La taille de sortie des images sera la meme que la taille d'origine\n ***** Pas encore implemente...\n";

std::string WriteScript(const std::string& text) {
  char path[] = "/tmp/kelvarion_scriptXXXXXX";
  close(mkstemp(path));
  WriteWholeFile(path, text);
  return path;
}

// Parses text as a script and returns what was echoed after the fixed header.
std::string Parse(const std::string& text) {
  std::string path = WriteScript(text);
  Settings.ScriptPath = path.c_str();
  ConsoleCapture capture = BeginCapture();
  ParseScript();
  std::string output = EndCapture(capture), header = "Lecture des parametres\n\nFichier de script : " + path + "\n\n\n";
  unlink(path.c_str());
  EXPECT_EQ(output.substr(0, header.size()), header);
  return output.substr(std::min(header.size(), output.size()));
}

std::string U(int line) { return "*********** Commande inconnue ligne " + std::to_string(line) + "\n"; }
std::string F(int n) { return "Fraction de l'image prise en compte pour la recherche de translation=1/" + std::to_string(n) + "  \n"; }
std::string Src(const std::string& names) { return "Image source: " + names; }
std::string Seq(const std::string& text) { return "Nom generique de la sequence entree: " + text; }
std::string Pair(const std::string& s, int64_t n) { return "source: " + s + std::to_string(n) + ".bmp -> resultat: r" + std::to_string(n) + ".bmp\n"; }

TEST(ScriptReader, LineRulesAndEchoes) {
  const std::string x(1496, 'x'), blanks(995, ' '), NoName = "Commande source sans nom de fichier ";
  const std::string TWICE = "Attention: plusieurs commande reference dans le m\x90me fichier\n";
  struct Case { std::string script, echo; int32_t pause; };
  const Case cases[] = {
      {"Quitter\n", U(1), 0}, {"Quitter \n", "", 1}, {"Quitter:\n", "", 1}, {"Quitter", "", 1}, {" : :quitter:x\n", "", 1},
      {"Quitter\t\n", U(1), 0}, {"Quitter\r\n", U(1), 0}, {"Quitter,x\n", U(1), 0}, {"Quitter \nQuitter\n", U(2), 1},
      {"QUITTER \nQuit \nQuitters \n", U(1) + U(2) + U(3), 0}, {"\t\n\r\n", U(1) + U(2), 0}, {"\n : :\nRem x\nfoo\n  :: ", U(4), 0}, {"Rem\nrem", U(1), 0},
      {"Source\nSource\ta.bmp r.bmp\nSources a b\nSOURCE a b\nReference,r.bmp\n", U(1) + U(2) + U(3) + U(4) + U(5), 0},
      {"Rem " + x.substr(0, 994) + "\nfoo\n", U(2), 0}, {"Rem " + x.substr(0, 995) + "\nfoo\n", U(3), 0},
      {"Rem " + x + "\nfoo\n", U(2) + U(3), 0}, {blanks + "    Quitter \n", "", 1}, {blanks + "Quitter \n", U(1) + U(2), 0},
      {"Source a.bmp r.bmp 100 120\nsource a b\n", Src("a.bmp Fichier resultat: r.bmp Point x0=100 y0=120\n") + Src("a Fichier resultat: b\n"), 0},
      {"Source a\tr\nSource a r\r\nSource:c:a,d:r,10,20\n", Src("a\tr ") + NoName + "resultat. Ligne 1\n\n" + Src("a Fichier resultat: r\r\n") + Src("c:a Fichier resultat: d:r Point x0=10 y0=20\n"), 0},
      {"Source a b 12px abc\nSource \n", Src("a Fichier resultat: b Point x0=12 y0=0\n") + NoName + "source. Ligne 2\n" + NoName + "resultat. Ligne 2\n\n", 0},
      {"Sourcesbmp i.bmp r 1 2\n", Seq("i.bmp   sortie: r   Debut=1  Fin=2\n") + Pair("i.bmp", 1) + Pair("i.bmp", 2), 0},
      {"sourcesbmp g r 5 3\nSourcesbmp g r -1 1\n", Seq("g   sortie: r   Debut=5  Fin=3\n") + Seq("g   sortie: r   Debut=-1  Fin=1\n") + Pair("g", -1) + Pair("g", 0) + Pair("g", 1), 0},
      {"Sourcesbmp g r 2147483646 99999999999\n", Seq("g   sortie: r   Debut=2147483646  Fin=2147483647\n") + Pair("g", 2147483646) + Pair("g", 2147483647), 0},
      {"Sourcesbmp g r 2\nSourcesbmp \n", Seq("g   sortie: r   Debut=2  Pas de numero de fin") + NoName + "source. Ligne 2\n" + NoName + "de sortie. Ligne 2\nPas de numero de debutPas de numero de fin", 0},
      {"Reference a\nreference b 7 8\nReference \n", "Image de reference: a\n" + TWICE + "Image de reference: b Point x0=7 y0=8\n" + TWICE + "Commande reference sans nom de fichier. Ligne 3\n\n", 0},
      {"Compositage sum\ncompositage \n", "Image compositee: sum\nCommande compositage sans nom de fichier. Ligne 2\n\n", 0},
      {"Dimension libre\ndimension Fixe\nDimension libre\r\nDimension \ndimension Libre", LIBRE + FIXE + FIXE + "\n" + LIBRE, 0},
      {"OptiTranslation 4\nOptitranslation 0\noptiTranslation -4\noptitranslation \n", F(4) + F(1) + F(1) + "\n", 0},
      {"angle 0.3 1e2 abc\nAngle 1e39\n", "Angle min=0.300000  Angle max=100.000000  Resolution=0.000000  \nAngle min=inf  \n", 0},
      {"Translation 10 0\ntranslation 10 -2\nTranslation 99999999999\nTranslation \n", "Decalage global maximum=10   pas=1  \nDecalage global maximum=10   pas=-2  \nDecalage global maximum=2147483647  \n\n", 0},
      {"Bloc 8 4 3 0.5\nbloc 8,,4\n", "Largeur de grille=8  Largeur de recherche=4  Decalage maxi de bloc=3  Pas de decalage de bloc=0.500000  \nLargeur de grille=8  Largeur de recherche=4  \n", 0},
  };
  for (const Case& c : cases) {
    Settings.NoFinalPause = 0;
    EXPECT_EQ(Parse(c.script), c.echo) << c.script.substr(0, 60);
    EXPECT_EQ(Settings.NoFinalPause, c.pause) << c.script.substr(0, 60);
  }
}

// Starts from a value the reader must overwrite with its default.
#define EXPECT_FIELD(script, field, value) { Settings.field = 12345; Parse(script); EXPECT_EQ(Settings.field, value) << script; }
float Radians(float degrees) { return (float)((double)degrees * 0.017453292522222223); }

TEST(ScriptReader, StoredSettings) {
  const SettingsRecord& s = Settings;
  Parse("Translation 10 -2\nBloc -5 -1 3 -0.5\n");
  EXPECT_EQ(std::vector<int32_t>({s.ShiftMinX, s.ShiftMaxX, s.ShiftMinY, s.ShiftMaxY, s.ShiftStep, s.GridWidth, s.SearchWidth,
                                  s.BlockShiftMinX, s.BlockShiftMaxX, s.BlockShiftMinY, s.BlockShiftMaxY}),
            std::vector<int32_t>({-10, 10, -10, 10, -2, -5, -1, -3, 3, -3, 3}));
  EXPECT_EQ(s.BlockShiftStep, -0.5f);
  EXPECT_FIELD("", ShiftStep, 1); EXPECT_FIELD("", TranslationFraction, 6); EXPECT_FIELD("", AngleResolution, 1.0f); EXPECT_FIELD("", BlockShiftStep, 1.0f);
  EXPECT_FIELD("Translation 10 7\nTranslation 3\n", ShiftStep, 7); EXPECT_FIELD("Translation 10\nTranslation \n", ShiftMaxX, 10);
  EXPECT_FIELD("Translation +3 0\n", ShiftMaxX, 3); EXPECT_FIELD("Translation 1e2 abc\n", ShiftStep, 1); EXPECT_FIELD("Translation 1e2\n", ShiftMaxX, 1);
  EXPECT_FIELD("Translation 0x10\n", ShiftMaxX, 0); EXPECT_FIELD("Translation 99999999999\n", ShiftMinY, -INT32_MAX);
  EXPECT_FIELD("Translation -99999999999\n", ShiftMaxY, INT32_MIN); EXPECT_FIELD("Translation 99999999999999999999999\n", ShiftMaxX, INT32_MAX);
  EXPECT_FIELD("Translation -2147483648\n", ShiftMinX, INT32_MAX); EXPECT_FIELD("Bloc 8 4 -2147483648\n", BlockShiftMinY, INT32_MAX);
  EXPECT_FIELD("OptiTranslation 0\n", TranslationFraction, 1); EXPECT_FIELD("OptiTranslation 3\nOptiTranslation \n", TranslationFraction, 3);
  EXPECT_FIELD("Bloc 1 1 1 0.25\nBloc 1 1 1\n", BlockShiftStep, 0.25f); EXPECT_FIELD("Angle 5\n", AngleMin, Radians(5.0f));
  EXPECT_FIELD("Angle 5\n", AngleMax, 0.0f); EXPECT_FIELD("Angle -2 2 0.5\n", AngleResolution, Radians(0.5f)); EXPECT_FIELD("Angle 5\nAngle abc\n", AngleMin, 0.0f);
  EXPECT_FIELD("Angle 0 0.3\n", AngleMax, Radians(0.3f));  // 0.3 is rounded to float before the conversion
}

TEST(ScriptReader, ImageTable) {
  const ImageTableRecord& t = ImageTable;
  Parse("Source a r 10\nSource b r2 x 4\nSource c\nSource d e\nSource f\nCompositage a\nCompositage b\nReference g 100 100\nReference h\n");
  EXPECT_EQ(std::vector<int32_t>({t.ImageCount, t.ImageX0Given[1], t.ImageX0[1], t.ImageY0Given[1], t.ImageX0[2], t.ImageY0[2], t.RefX0, t.RefX0Given, t.RefY0,
                                  t.RefY0Given}), std::vector<int32_t>({3, 1, 10, 0, 0, 4, 0, 0, 0, 0}));
  EXPECT_EQ(std::string(t.SourceNames[3]) + t.ResultNames[3] + t.SourceNames[4] + t.CompositeName + t.ReferenceName, "defbh");
  Settings.NoFinalPause = 1;
  EXPECT_EQ(Parse(""), "");
  EXPECT_EQ(std::vector<const void*>({t.SourceNames[1], t.SourceNames[4], t.ReferenceName, t.CompositeName}), std::vector<const void*>(4, nullptr));
  EXPECT_EQ(std::vector<int32_t>({t.ImageCount, Settings.NoFinalPause}), std::vector<int32_t>({0, 1}));
  Parse("Sourcesbmp g r 1 29999\n");
  EXPECT_STREQ(t.SourceNames[MAX_IMAGE_COUNT], "g29999.bmp");
  Parse("Sourcesbmp g r 1 29998\nSource a b\nSourcesbmp g r 5 3\nSourcesbmp g r 1\n");
  EXPECT_STREQ(t.ResultNames[MAX_IMAGE_COUNT], "b");
  EXPECT_EQ(t.ImageCount, MAX_IMAGE_COUNT);
}

// Parses the script at path in a child that must abort; returns what the child printed.
std::string FatalOutput(const std::string& path) {
  std::string outputPath = WriteScript("");
  fflush(stdout);
  EXPECT_EXIT({ freopen("/dev/null", "r", stdin); freopen(outputPath.c_str(), "w", stdout); Settings.ScriptPath = path.c_str(); ParseScript(); },
              ::testing::KilledBySignal(SIGABRT), "");
  std::string output = ReadWholeFile(outputPath);
  unlink(outputPath.c_str());
  return output;
}

TEST(ScriptReaderDeathTest, FatalErrors) {
  for (const std::string& path : {std::string("/tmp/kelvarion_no_such_dir/script.txt"), std::string("/tmp"), "/tmp" + std::string(600, '/') + "kelvarion_none"})
    EXPECT_EQ(FatalOutput(path), "Lecture des parametres\nImpossible d'ouvrir le fichier " + path + "\n" + FATAL);
  const std::string full = "Sourcesbmp g r 1 29999\n";
  const std::pair<std::string, std::string> cases[] = {
      {"Sourcesbmp g r 0 29999\n", "Debut=0  Fin=29999\n" + TOO_MANY}, {"Sourcesbmp g r -2147483648 2147483647\n", "Fin=2147483647\n" + TOO_MANY},
      {full + "Source \n", "resultat: r29999.bmp\nErreur : trop d'images \x88 traiter\n"}, {full + "Sourcesbmp a b 7 7\n", "Debut=7  Fin=7\n" + TOO_MANY}};
  for (const auto& [script, tail] : cases) {
    std::string path = WriteScript(script), output = FatalOutput(path), end = tail + FATAL;
    unlink(path.c_str());
    EXPECT_EQ(output.substr(output.size() - std::min(output.size(), end.size())), end) << script.substr(0, 60);
  }
}

}  // namespace
