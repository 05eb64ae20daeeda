#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <unistd.h>
#include <vector>

#include "console_capture.h"
#include "run/settings.h"
#include "run_process.h"

namespace {

const std::string NO_NAME = "Commande source sans nom de fichier ";
const std::string SEQUENCE = "Nom generique de la sequence entree: g   sortie: r   ";

// Parses text as a script and returns what was echoed after the fixed header.
std::string Parse(const std::string& text) {
  char path[] = "/tmp/kelvarion_scriptXXXXXX";
  close(mkstemp(path));
  WriteWholeFile(path, text);
  Settings.ScriptPath = path;
  ConsoleCapture capture = BeginCapture();
  ParseScript();
  std::string output = EndCapture(capture);
  unlink(path);
  EXPECT_TRUE(output.starts_with(ParseEcho(path, ""))) << output;
  return output.substr(ParseEcho(path, "").size());
}

std::string U(int line) { return "*********** Commande inconnue ligne " + std::to_string(line) + "\n"; }

// Only blanks and colons end the command word; a line end, tab, return or comma stays in it.
TEST(ScriptReader, CommandWordsAndLongLines) {
  Settings.NoFinalPause = 0;
  const std::string words = "Quitter\nQuitter\t\nQuitter\r\nQuitter,x\nQUITTER \nQuitters \nQuit \n";
  const std::string blanks = " : :rem:x\n\t\n\n : :\nRem\nfoo\n  :: rem";
  EXPECT_EQ(Parse(words + blanks), U(1) + U(2) + U(3) + U(4) + U(5) + U(6) + U(7) + U(9) + U(12) + U(13));
  EXPECT_EQ(Parse(" : :quitter:x\nQuitter"), "");
  EXPECT_EQ(Settings.NoFinalPause, 1);
  // 999 characters a read: what a longer line holds past them is numbered as the next line.
  const std::string x(1496, 'x');
  const std::string overlong = "Rem " + x.substr(0, 995) + "\nRem " + x + "\n" + std::string(995, ' ');
  EXPECT_EQ(Parse(overlong + "Quitter \nfoo\n"), U(4) + U(5) + U(6) + U(7));
}

TEST(ScriptReader, CommandEchoes) {
  const std::pair<std::string, std::string> cases[] = {
      {"Source a.bmp r.bmp 100 120\nsource:c:a,d:r\r,10\nSource a\tr\nSource \n",
       "Image source: a.bmp Fichier resultat: r.bmp Point x0=100 y0=120\n"
       "Image source: c:a Fichier resultat: d:r\r Point x0=10\nImage source: a\tr " + NO_NAME +
           "resultat. Ligne 3\n\n" + NO_NAME + "source. Ligne 4\n" + NO_NAME + "resultat. Ligne 4\n\n"},
      {"sourcesbmp g r 5 3\nSourcesbmp g r 2147483647 99999999999\nSourcesbmp g r -1\nSourcesbmp \n",
       SEQUENCE + "Debut=5  Fin=3\n" + SEQUENCE + "Debut=2147483647  Fin=2147483647\n" +
           "source: g2147483647.bmp -> resultat: r2147483647.bmp\n" + SEQUENCE +
           "Debut=-1  Pas de numero de fin" + NO_NAME + "source. Ligne 4\n" + NO_NAME +
           "de sortie. Ligne 4\nPas de numero de debutPas de numero de fin"},
      {"reference b 7 8\nReference \ncompositage \n",
       "Image de reference: b Point x0=7 y0=8\n"
       "Attention: plusieurs commande reference dans le m\x90me fichier\n"
       "Commande reference sans nom de fichier. Ligne 2\n\n"
       "Commande compositage sans nom de fichier. Ligne 3\n\n"},
      {"Dimension libre\ndimension Fixe\nOptiTranslation 4\nOptitranslation \n"
       "Bloc 8 4 3 0.5\nbloc 8,,4\n",
       "La taille de sortie des images peut \x90tre differente de la taille d'origine\n"
       "La taille de sortie des images sera la meme que la taille d'origine\n"
       " ***** Pas encore implemente...\n"
       "Fraction de l'image prise en compte pour la recherche de translation=1/4  \n\n"
       "Largeur de grille=8  Largeur de recherche=4  Decalage maxi de bloc=3  "
       "Pas de decalage de bloc=0.500000  \nLargeur de grille=8  Largeur de recherche=4  \n"},
  };
  for (const auto& [script, echo] : cases) EXPECT_EQ(Parse(script), echo) << script;
}

// Starts from a value the reader must overwrite with its default or the script's.
template <typename T>
void ExpectField(const std::string& script, T SettingsRecord::*field, T value) {
  Settings.*field = (T)12345;
  Parse(script);
  EXPECT_EQ(Settings.*field, value) << script;
}

TEST(ScriptReader, StoredSettings) {
  const SettingsRecord& s = Settings;
  Parse("Translation 10 -2\nBloc -5 -1 3 -0.5\n");
  EXPECT_EQ(std::vector<int32_t>({s.ShiftMinX, s.ShiftMaxX, s.ShiftMinY, s.ShiftMaxY, s.ShiftStep,
                                  s.GridWidth, s.SearchWidth, s.BlockShiftMinX, s.BlockShiftMaxX,
                                  s.BlockShiftMinY, s.BlockShiftMaxY}),
            std::vector<int32_t>({-10, 10, -10, 10, -2, -5, -1, -3, 3, -3, 3}));
  EXPECT_EQ(s.BlockShiftStep, -0.5f);
  ExpectField("", &SettingsRecord::TranslationFraction, 6);
  ExpectField("Translation 10 7\nTranslation +3\n", &SettingsRecord::ShiftStep, 7);
  ExpectField("Translation 5\t7 0x10\n", &SettingsRecord::ShiftStep, 1);  // no tab cut; "0x10" reads 0
  ExpectField("Translation -99999999999\n", &SettingsRecord::ShiftMaxY, INT32_MIN);
  ExpectField("Translation -2147483648\n", &SettingsRecord::ShiftMinX, INT32_MAX);
  ExpectField("optiTranslation -4\noptitranslation \n", &SettingsRecord::TranslationFraction, 1);
  ExpectField("Bloc 1 1 1 0.25\nBloc 1 1 1\n", &SettingsRecord::BlockShiftStep, 0.25f);
  // Degrees are read as a float, then converted to radians in double.
  ExpectField("Angle 0 0.3\n", &SettingsRecord::AngleMax, (float)(0.3f * 0.017453292522222223));
}

TEST(ScriptReader, ImageTable) {
  const ImageTableRecord& t = ImageTable;
  Parse("Source a r 10\nSource b r2 x 4\nSource c\nSource d e\nSource f\n"
        "Compositage a\nCompositage b\nReference g 100 100\nReference h\n");
  EXPECT_EQ(std::vector<int32_t>({t.ImageCount, t.ImageX0Given[1], t.ImageX0[1], t.ImageY0Given[1],
                                  t.ImageX0[2], t.ImageY0[2], t.RefX0, t.RefX0Given, t.RefY0, t.RefY0Given}),
            std::vector<int32_t>({3, 1, 10, 0, 0, 4, 0, 0, 0, 0}));
  std::string names = std::string(t.SourceNames[3]) + t.ResultNames[3] + t.SourceNames[4];
  EXPECT_EQ(names + t.CompositeName + t.ReferenceName, "defbh");
  Parse("");
  EXPECT_EQ(std::vector<const void*>({t.SourceNames[1], t.SourceNames[4], t.ReferenceName, t.CompositeName}),
            std::vector<const void*>(4, nullptr));
  EXPECT_EQ(t.ImageCount, 0);
  // A full table still takes empty and incomplete lines, and refills its last slot.
  Parse("Sourcesbmp g r 1 29998\nSource a b\nSourcesbmp g r 5 3\nSourcesbmp g r 1\n");
  EXPECT_STREQ(t.ResultNames[MAX_IMAGE_COUNT], "b");
  EXPECT_EQ(t.ImageCount, MAX_IMAGE_COUNT);
}

// Runs the program in a fresh directory holding script; it must end through the fatal path.
std::string FatalRun(const std::string& script, const std::string& path = "script.txt") {
  std::string dir = MakeTempDirectory();
  WriteWholeFile(dir + "/script.txt", script);
  ProcessResult run = RunKelvarionIn(dir, {path});
  RemoveDirectory(dir);
  EXPECT_EQ(run.signal, SIGABRT) << path;
  return run.output;
}

TEST(ScriptReader, FatalErrors) {
  const std::string cannotOpen = "Lecture des parametres\nImpossible d'ouvrir le fichier ";
  for (const std::string& path : std::vector<std::string>{"none/script", ".", std::string(600, '/') + "none"})
    EXPECT_EQ(FatalRun("", path), BANNER + cannotOpen + path + "\n" + FATAL);
  const std::string full = "Sourcesbmp g r 1 29999\n";
  const std::pair<std::string, std::string> cases[] = {
      {"Sourcesbmp g r -2147483648 2147483647\n", "Fin=2147483647\nTrop d'images \x88 traiter\n"},
      {full + "Source \n", "resultat: r29999.bmp\nErreur : trop d'images \x88 traiter\n"},
      {full + "Sourcesbmp a b 7 7\n", "Debut=7  Fin=7\nTrop d'images \x88 traiter\n"},
  };
  for (const auto& [script, tail] : cases) EXPECT_TRUE(FatalRun(script).ends_with(tail + FATAL)) << script;
}

}  // namespace
