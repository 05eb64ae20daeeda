#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <unistd.h>

#include "console_capture.h"
#include "run/settings.h"

namespace {

const double DEGREE = 0.017453292522222223;

std::string WriteScript(const std::string& text) {
  char path[] = "/tmp/kelvarion_scriptXXXXXX";
  int descriptor = mkstemp(path);
  EXPECT_GE(descriptor, 0);
  EXPECT_EQ(write(descriptor, text.data(), text.size()), (ssize_t)text.size());
  close(descriptor);
  return path;
}

// Parses text as a script and returns what was echoed after the fixed header.
std::string Parse(const std::string& text) {
  std::string path = WriteScript(text);
  Settings.ScriptPath = path.c_str();
  Settings.NoFinalPause = 0;
  ConsoleCapture capture = BeginCapture();
  ParseScript();
  std::string output = EndCapture(capture);
  unlink(path.c_str());
  std::string header = "Lecture des parametres\n\nFichier de script : " + path + "\n\n\n";
  EXPECT_EQ(output.substr(0, header.size()), header);
  return output.substr(std::min(header.size(), output.size()));
}

std::string Unknown(int line) {
  return "*********** Commande inconnue ligne " + std::to_string(line) + "\n";
}

TEST(ScriptReader, CommandWordsAndBlankLines) {
  struct Case { const char* edge; const char* script; std::string echo; int32_t noFinalPause; };
  const Case cases[] = {
      {"word followed by line end is unknown", "Quitter\n", Unknown(1), 0},
      {"word followed by blank", "Quitter \n", "", 1},
      {"word followed by colon", "Quitter:\n", "", 1},
      {"last line without line end", "Quitter", "", 1},
      {"lower-case form", "quitter \n", "", 1},
      {"leading blanks and colons, colon cut", " : :Quitter:x\n", "", 1},
      {"upper case", "QUITTER \n", Unknown(1), 0},
      {"prefix of keyword", "Quit \n", Unknown(1), 0},
      {"keyword with trailing characters", "Quitters \n", Unknown(1), 0},
      {"tab does not cut the word", "Quitter\t\n", Unknown(1), 0},
      {"carriage return does not cut the word", "Quitter\r\n", Unknown(1), 0},
      {"comma does not cut the word", "Quitter,x\n", Unknown(1), 0},
      {"blank line", "\n", "", 0},
      {"blanks and colons then line end", " : :\n", "", 0},
      {"no token and no line end", "  :: ", "", 0},
      {"tab-only line is a word", "\t\n", Unknown(1), 0},
      {"carriage-return line is a word", "\r\n", Unknown(1), 0},
      {"Rem followed by line end", "Rem\n", Unknown(1), 0},
      {"comment", "Rem Source a.bmp r.bmp\n", "", 0},
      {"comment at end of file", "rem", "", 0},
      {"parsing goes on after Quitter", "Quitter \nQuitter\n", Unknown(2), 1},
      {"line counter counts blank lines", "\n \nRem x\nfoo\n", Unknown(4), 0},
      {"Source followed by line end", "Source\n", Unknown(1), 0},
      {"Source followed by tab and names", "Source\ta.bmp r.bmp\n", Unknown(1), 0},
      {"Sources is not a form", "Sources a.bmp r.bmp\n", Unknown(1), 0},
      {"SOURCE is not a form", "SOURCE a.bmp r.bmp\n", Unknown(1), 0},
      {"comma after the word", "Reference,ref.bmp\n", Unknown(1), 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Parse(c.script), c.echo) << c.edge;
    EXPECT_EQ(Settings.NoFinalPause, c.noFinalPause) << c.edge;
    EXPECT_EQ(ImageTable.ImageCount, 0) << c.edge;
  }
}

TEST(ScriptReader, LongLinesAreReadInPiecesOf999Characters) {
  const std::string x(2000, 'x');
  struct Case { const char* edge; std::string script; std::string echo; int32_t noFinalPause; };
  const Case cases[] = {
      {"998 characters and line end: one piece", "Rem " + x.substr(0, 994) + "\nfoo\n", Unknown(2), 0},
      {"999 characters and line end: line end is a piece", "Rem " + x.substr(0, 995) + "\nfoo\n", Unknown(3), 0},
      {"1500 characters count as two lines", "Rem " + x.substr(0, 1496) + "\nfoo\n", Unknown(2) + Unknown(3), 0},
      {"piece of blanks only gives no command", std::string(999, ' ') + "Quitter \n", "", 1},
      {"word split by the piece boundary", std::string(995, ' ') + "Quitter \n", Unknown(1) + Unknown(2), 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Parse(c.script), c.echo) << c.edge;
    EXPECT_EQ(Settings.NoFinalPause, c.noFinalPause) << c.edge;
  }
}

TEST(ScriptReader, EchoOfEveryCommand) {
  struct Case { const char* edge; const char* script; const char* echo; };
  const Case cases[] = {
      {"complete Source", "Source a.bmp r.bmp 100 120\n", "Image source: a.bmp Fichier resultat: r.bmp Point x0=100 y0=120\n"},
      {"Source without centre", "source a.bmp r.bmp\n", "Image source: a.bmp Fichier resultat: r.bmp\n"},
      {"Source with commas", "Source a.bmp,r.bmp,10,20\n", "Image source: a.bmp Fichier resultat: r.bmp Point x0=10 y0=20\n"},
      {"colon after the word", "Source: a.bmp r.bmp\n", "Image source: a.bmp Fichier resultat: r.bmp\n"},
      {"colons inside arguments", "Source:c:a.bmp d:r.bmp\n", "Image source: c:a.bmp Fichier resultat: d:r.bmp\n"},
      {"tab inside argument", "Source a.bmp\tr.bmp\n", "Image source: a.bmp\tr.bmp Commande source sans nom de fichier resultat. Ligne 1\n\n"},
      {"carriage return kept in argument", "Source a.bmp r.bmp\r\n", "Image source: a.bmp Fichier resultat: r.bmp\r\n"},
      {"Source without names", "Source \n", "Commande source sans nom de fichier source. Ligne 1\nCommande source sans nom de fichier resultat. Ligne 1\n\n"},
      {"numbers by strtol", "Source a b 12px abc\n", "Image source: a Fichier resultat: b Point x0=12 y0=0\n"},
      {"numbered run", "Sourcesbmp img res 1 3\n", "Nom generique de la sequence entree: img   sortie: res   Debut=1  Fin=3\nsource: img1.bmp -> resultat: res1.bmp\nsource: img2.bmp -> resultat: res2.bmp\nsource: img3.bmp -> resultat: res3.bmp\n"},
      {"run with last below first", "sourcesbmp g r 5 3\n", "Nom generique de la sequence entree: g   sortie: r   Debut=5  Fin=3\n"},
      {"negative numbers", "Sourcesbmp g r -1 1\n", "Nom generique de la sequence entree: g   sortie: r   Debut=-1  Fin=1\nsource: g-1.bmp -> resultat: r-1.bmp\nsource: g0.bmp -> resultat: r0.bmp\nsource: g1.bmp -> resultat: r1.bmp\n"},
      {"stem used unchanged", "Sourcesbmp img.bmp r 1 1\n", "Nom generique de la sequence entree: img.bmp   sortie: r   Debut=1  Fin=1\nsource: img.bmp1.bmp -> resultat: r1.bmp\n"},
      {"run up to the largest number", "Sourcesbmp g r 2147483646 99999999999\n", "Nom generique de la sequence entree: g   sortie: r   Debut=2147483646  Fin=2147483647\nsource: g2147483646.bmp -> resultat: r2147483646.bmp\nsource: g2147483647.bmp -> resultat: r2147483647.bmp\n"},
      {"run without last number", "Sourcesbmp g r 2\n", "Nom generique de la sequence entree: g   sortie: r   Debut=2  Pas de numero de fin"},
      {"run without result stem", "Sourcesbmp g\n", "Nom generique de la sequence entree: g   Commande source sans nom de fichier de sortie. Ligne 1\nPas de numero de debutPas de numero de fin"},
      {"run without anything", "Sourcesbmp \n", "Commande source sans nom de fichier source. Ligne 1\nCommande source sans nom de fichier de sortie. Ligne 1\nPas de numero de debutPas de numero de fin"},
      {"Reference", "Reference ref.bmp 100 120\n", "Image de reference: ref.bmp Point x0=100 y0=120\n"},
      {"Reference without name", "reference \n", "Commande reference sans nom de fichier. Ligne 1\n\n"},
      {"second Reference", "Reference a.bmp\nReference b.bmp 7\n", "Image de reference: a.bmp\nAttention: plusieurs commande reference dans le m\x90me fichier\nImage de reference: b.bmp Point x0=7\n"},
      {"Compositage", "Compositage sum\n", "Image compositee: sum\n"},
      {"Compositage without name", "compositage \n", "Commande compositage sans nom de fichier. Ligne 1\n\n"},
      {"Dimension libre", "Dimension libre\n", "La taille de sortie des images peut \x90tre differente de la taille d'origine\n"},
      {"Dimension Libre", "dimension Libre", "La taille de sortie des images peut \x90tre differente de la taille d'origine\n"},
      {"Dimension other word", "Dimension Fixe\n", "La taille de sortie des images sera la meme que la taille d'origine\n ***** Pas encore implemente...\n"},
      {"Dimension libre with carriage return", "Dimension libre\r\n", "La taille de sortie des images sera la meme que la taille d'origine\n ***** Pas encore implemente...\n"},
      {"Dimension alone", "Dimension \n", "\n"},
      {"OptiTranslation", "OptiTranslation 4\n", "Fraction de l'image prise en compte pour la recherche de translation=1/4  \n"},
      {"OptiTranslation 0 raised", "Optitranslation 0\n", "Fraction de l'image prise en compte pour la recherche de translation=1/1  \n"},
      {"OptiTranslation -4 raised", "optiTranslation -4\n", "Fraction de l'image prise en compte pour la recherche de translation=1/1  \n"},
      {"OptiTranslation alone", "optitranslation \n", "\n"},
      {"Angle", "Angle -2 2 0.5\n", "Angle min=-2.000000  Angle max=2.000000  Resolution=0.500000  \n"},
      {"Angle minimum only", "angle 5\n", "Angle min=5.000000  \n"},
      {"Angle echo of the float", "Angle 0.3 1e2 abc\n", "Angle min=0.300000  Angle max=100.000000  Resolution=0.000000  \n"},
      {"Angle beyond float range", "Angle 1e39\n", "Angle min=inf  \n"},
      {"Translation step 0 becomes 1", "Translation 10 0\n", "Decalage global maximum=10   pas=1  \n"},
      {"Translation step -2 kept", "translation 10 -2\n", "Decalage global maximum=10   pas=-2  \n"},
      {"Translation alone", "Translation \n", "\n"},
      {"Bloc", "Bloc 8 4 3 0.5\n", "Largeur de grille=8  Largeur de recherche=4  Decalage maxi de bloc=3  Pas de decalage de bloc=0.500000  \n"},
      {"Bloc partial", "bloc 8,,4\n", "Largeur de grille=8  Largeur de recherche=4  \n"},
  };
  for (const Case& c : cases) EXPECT_EQ(Parse(c.script), c.echo) << c.edge;
}

TEST(ScriptReader, IntegerSettingsAndClamps) {
  struct Case { const char* edge; const char* script; int32_t SettingsRecord::*field; int32_t expected; };
  const Case cases[] = {
      {"defaults", "", &SettingsRecord::ShiftStep, 1},
      {"default fraction", "", &SettingsRecord::TranslationFraction, 6},
      {"maximum x", "Translation 10 0\n", &SettingsRecord::ShiftMaxX, 10},
      {"minimum x", "Translation 10 0\n", &SettingsRecord::ShiftMinX, -10},
      {"maximum y", "Translation 10 0\n", &SettingsRecord::ShiftMaxY, 10},
      {"minimum y", "Translation 10 0\n", &SettingsRecord::ShiftMinY, -10},
      {"step 0 becomes 1", "Translation 10 0\n", &SettingsRecord::ShiftStep, 1},
      {"negative step kept", "Translation 10 -2\n", &SettingsRecord::ShiftStep, -2},
      {"missing step keeps value", "Translation 10 7\nTranslation 3\n", &SettingsRecord::ShiftStep, 7},
      {"missing maximum keeps value", "Translation 10\nTranslation \n", &SettingsRecord::ShiftMinX, -10},
      {"not a number is 0, then 1", "Translation 5 abc\n", &SettingsRecord::ShiftStep, 1},
      {"trailing letters ignored", "Translation 12px\n", &SettingsRecord::ShiftMaxX, 12},
      {"plus sign", "Translation +3\n", &SettingsRecord::ShiftMaxX, 3},
      {"no exponent for integers", "Translation 1e2\n", &SettingsRecord::ShiftMaxX, 1},
      {"base 10 only", "Translation 0x10\n", &SettingsRecord::ShiftMaxX, 0},
      {"above 32 bits saturates", "Translation 99999999999\n", &SettingsRecord::ShiftMaxX, INT32_MAX},
      {"its opposite", "Translation 99999999999\n", &SettingsRecord::ShiftMinY, -INT32_MAX},
      {"below 32 bits saturates", "Translation -99999999999\n", &SettingsRecord::ShiftMaxY, INT32_MIN},
      {"above long saturates", "Translation 99999999999999999999999\n", &SettingsRecord::ShiftMaxX, INT32_MAX},
      {"opposite of -2^31", "Translation -2147483648\n", &SettingsRecord::ShiftMinX, INT32_MAX},
      {"fraction 0 raised", "OptiTranslation 0\n", &SettingsRecord::TranslationFraction, 1},
      {"fraction -4 raised", "OptiTranslation -4\n", &SettingsRecord::TranslationFraction, 1},
      {"fraction kept", "OptiTranslation 3\n", &SettingsRecord::TranslationFraction, 3},
      {"missing fraction", "OptiTranslation 3\nOptiTranslation \n", &SettingsRecord::TranslationFraction, 3},
      {"grid width unclamped", "Bloc -5 -1\n", &SettingsRecord::GridWidth, -5},
      {"search width unclamped", "Bloc -5 -1\n", &SettingsRecord::SearchWidth, -1},
      {"block maximum", "Bloc 8 4 3\n", &SettingsRecord::BlockShiftMaxY, 3},
      {"block minimum", "Bloc 8 4 3\n", &SettingsRecord::BlockShiftMinX, -3},
      {"block opposite of -2^31", "Bloc 8 4 -2147483648\n", &SettingsRecord::BlockShiftMinY, INT32_MAX},
  };
  for (const Case& c : cases) {
    Settings.*c.field = 12345;
    Parse(c.script);
    EXPECT_EQ(Settings.*c.field, c.expected) << c.edge;
  }
}

float Radians(float degrees) { return (float)((double)degrees * DEGREE); }

TEST(ScriptReader, DecimalSettings) {
  struct Case { const char* edge; const char* script; float SettingsRecord::*field; float expected; };
  const Case cases[] = {
      {"default resolution in radians", "", &SettingsRecord::AngleResolution, 1.0f},
      {"default block step", "", &SettingsRecord::BlockShiftStep, 1.0f},
      {"minimum only", "Angle 5\n", &SettingsRecord::AngleMin, Radians(5.0f)},
      {"maximum untouched", "Angle 5\n", &SettingsRecord::AngleMax, 0.0f},
      {"resolution untouched", "Angle 5\n", &SettingsRecord::AngleResolution, 1.0f},
      {"negative minimum", "Angle -2 2 0.5\n", &SettingsRecord::AngleMin, Radians(-2.0f)},
      {"resolution", "Angle -2 2 0.5\n", &SettingsRecord::AngleResolution, Radians(0.5f)},
      // Converting 0.3 straight from double gives a different float.
      {"degrees stored as float first", "Angle 0 0.3\n", &SettingsRecord::AngleMax, Radians(0.3f)},
      {"exponent", "Angle 1e2\n", &SettingsRecord::AngleMin, Radians(100.0f)},
      {"not a number", "Angle 5\nAngle abc\n", &SettingsRecord::AngleMin, 0.0f},
      {"block step unclamped", "Bloc 1 1 1 -0.5\n", &SettingsRecord::BlockShiftStep, -0.5f},
      {"missing block step", "Bloc 1 1 1 0.25\nBloc 1 1 1\n", &SettingsRecord::BlockShiftStep, 0.25f},
  };
  for (const Case& c : cases) {
    Settings.*c.field = 99.0f;
    Parse(c.script);
    EXPECT_EQ(Settings.*c.field, c.expected) << c.edge;
  }
}

TEST(ScriptReader, EmptyScriptLeavesDefaultsAndRunFlags) {
  Parse("Source a.bmp r.bmp\nReference ref.bmp\nQuitter \n");
  Settings.NoFinalPause = 1;
  std::string path = WriteScript("");
  Settings.ScriptPath = path.c_str();
  ConsoleCapture capture = BeginCapture();
  ParseScript();
  EXPECT_EQ(EndCapture(capture), "Lecture des parametres\n\nFichier de script : " + path + "\n\n\n");
  unlink(path.c_str());
  EXPECT_EQ(Settings.NoFinalPause, 1);
  EXPECT_EQ(ImageTable.ImageCount, 0);
  EXPECT_EQ(ImageTable.ReferenceName, nullptr);
  EXPECT_EQ(ImageTable.SourceNames[1], nullptr);
}

TEST(ScriptReader, SourceSlots) {
  Parse("Source a.bmp r.bmp 10\nSource b.bmp r2.bmp x 4\n");
  EXPECT_EQ(ImageTable.ImageCount, 2);
  EXPECT_EQ(ImageTable.ImageX0Given[1], 1);
  EXPECT_EQ(ImageTable.ImageX0[1], 10);
  EXPECT_EQ(ImageTable.ImageY0Given[1], 0);
  EXPECT_EQ(ImageTable.ImageX0[2], 0);
  EXPECT_EQ(ImageTable.ImageY0[2], 4);
  EXPECT_STREQ(ImageTable.ResultNames[2], "r2.bmp");

  Parse("Source a.bmp\nSource b.bmp r.bmp\nSource c.bmp\nSourcesbmp g r 1 2\n");
  EXPECT_EQ(ImageTable.ImageCount, 3);
  EXPECT_STREQ(ImageTable.SourceNames[1], "b.bmp");
  EXPECT_STREQ(ImageTable.SourceNames[2], "g1.bmp");
  EXPECT_STREQ(ImageTable.ResultNames[3], "r2.bmp");
  EXPECT_EQ(ImageTable.ImageX0Given[3], 0);

  const std::string longName(990, 'n');
  Parse("Source " + longName + " r.bmp\nCompositage a\nCompositage b\n");
  EXPECT_EQ(std::string(ImageTable.SourceNames[1]), longName);
  EXPECT_STREQ(ImageTable.CompositeName, "b");
}

TEST(ScriptReader, LaterReferenceWins) {
  Parse("Reference ref.bmp 100 100\nReference ref2.bmp\n");
  EXPECT_STREQ(ImageTable.ReferenceName, "ref2.bmp");
  EXPECT_EQ(ImageTable.RefX0, 0);
  EXPECT_EQ(ImageTable.RefX0Given, 0);
  Parse("Reference ref.bmp 100 100\nReference \n");
  EXPECT_STREQ(ImageTable.ReferenceName, "ref.bmp");
  EXPECT_EQ(ImageTable.RefY0, 0);
  EXPECT_EQ(ImageTable.RefY0Given, 0);
}

TEST(ScriptReader, TableFillsToExactly29999Images) {
  Parse("Sourcesbmp g r 1 29999\n");
  EXPECT_EQ(ImageTable.ImageCount, MAX_IMAGE_COUNT);
  EXPECT_STREQ(ImageTable.SourceNames[MAX_IMAGE_COUNT], "g29999.bmp");
  Parse("Sourcesbmp g r 1 29998\nSource a b\nSourcesbmp g r 5 3\nSourcesbmp g r 1\n");
  EXPECT_EQ(ImageTable.ImageCount, MAX_IMAGE_COUNT);
  EXPECT_STREQ(ImageTable.ResultNames[MAX_IMAGE_COUNT], "b");
}

TEST(ScriptReader, ReleaseImageTableEmptiesEverySlot) {
  Parse("Source a b\nSource c\nReference r\nCompositage s\n");
  ReleaseImageTable();
  EXPECT_EQ(ImageTable.SourceNames[1], nullptr);
  EXPECT_EQ(ImageTable.SourceNames[2], nullptr);
  EXPECT_EQ(ImageTable.ReferenceName, nullptr);
  EXPECT_EQ(ImageTable.CompositeName, nullptr);
  EXPECT_EQ(ImageTable.ImageCount, 0);
}

}  // namespace
