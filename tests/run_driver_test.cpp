// The run driver as a process: command line, banner, the fatal paths before the
// first image, skipped images and the end of the run.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "run_process.h"
#include "test_pictures.h"

namespace {

// A small reference picture written with the program's own writer.
void WriteReference(const std::string& path, int width, int height) {
  TestPicture picture = MakePicture(width, height, 0, 0);
  for (int y = 0; y < height; y++)
    for (int x = 0; x < width; x++)
      SetPixel(picture, x, y, (unsigned char)(x * 7), (unsigned char)(y * 5), (unsigned char)(x + y), 255);
  SaveBmp(picture.image, path.c_str());
}

struct RunDirectory {
  std::string path;
  RunDirectory() : path(MakeTempDirectory()) {}
  ~RunDirectory() { RemoveDirectory(path); }
  std::string File(const std::string& name) const { return path + "/" + name; }
};

std::string Tail(const ProcessResult& run, size_t size) {
  return run.output.size() < size ? run.output : run.output.substr(run.output.size() - size);
}

TEST(RunDriver, ScriptWithoutReferenceIsFatalBeforeTheLog) {
  RunDirectory dir;
  WriteWholeFile(dir.File("script.txt"), "Rem nothing here\n");
  // The fatal wait ends on end of input as on one character.
  for (const char* input : {"", "x", "\n\n\n"}) {
    ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"}, input);
    EXPECT_EQ(run.signal, SIGABRT);
    EXPECT_EQ(run.output, BANNER + ParseEcho("script.txt", "") + "Erreur : pas d'image de reference\n" + FATAL);
  }
  EXPECT_FALSE(FileExists(dir.File("shift.lst")));
}

TEST(RunDriver, MissingSourcesAreSkippedAndTheRunGoesOn) {
  RunDirectory dir;
  WriteReference(dir.File("ref.bmp"), 6, 4);
  WriteWholeFile(dir.File("script.txt"), "Reference ref.bmp\nSourcesbmp gone out 1 2\n");
  ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"});
  EXPECT_EQ(run.exitCode, 0);
  std::string echo =
      "Image de reference: ref.bmp\n"
      "Nom generique de la sequence entree: gone   sortie: out   Debut=1  Fin=2\n"
      "source: gone1.bmp -> resultat: out1.bmp\n"
      "source: gone2.bmp -> resultat: out2.bmp\n";
  std::string images;
  for (int i = 1; i <= 2; i++) {
    std::string name = "gone" + std::to_string(i) + ".bmp";
    images += "\n**************************************************\nTraitement de l'image " +
              std::to_string(i) + " (" + name + ")\nChargement du fichier " + name +
              "Erreur : impossible d'ouvrir l'image " + name + "\n";
  }
  EXPECT_EQ(MaskTimes(run.output),
            BANNER + ParseEcho("script.txt", echo) + "Chargement du fichier ref.bmp" + images + END_OF_RUN);
  EXPECT_FALSE(FileExists(dir.File("out1.bmp")));
}


TEST(RunDriver, CommandLineForms) {
  RunDirectory dir;
  WriteReference(dir.File("ref.bmp"), 6, 4);
  WriteWholeFile(dir.File("script.txt"), "Reference ref.bmp\n");
  WriteWholeFile(dir.File("ScriptKelvarion2.txt"), "Reference ref.bmp\n");
  const std::string body = "Chargement du fichier ref.bmp" + END_OF_RUN;
  const std::string echo = "Image de reference: ref.bmp\n";

  ProcessResult two = RunKelvarionIn(dir.path, {"script.txt", "other.txt"});
  EXPECT_EQ(two.exitCode, 0);
  EXPECT_EQ(MaskTimes(two.output),
            "Trop de fichiers : seul le premier fichier pourra \x90tre traite\n"
            "Veuillez faire un script pour lancer plusieurs fois Kelvarion\n" +
                BANNER + ParseEcho("script.txt", echo) + body);
  EXPECT_EQ(ReadWholeFile(dir.File("shift.lst")), "");

  // Without an argument the default script is read and the run waits for Enter.
  ProcessResult none = RunKelvarionIn(dir.path, {}, "\n");
  EXPECT_EQ(none.exitCode, 0);
  EXPECT_EQ(MaskTimes(none.output), BANNER + ParseEcho("ScriptKelvarion2.txt", echo) + body +
                                        "Appuyez sur entree pour quitter\n");

  // A recognised "Quitter" (followed by a blank) removes the wait.
  WriteWholeFile(dir.File("ScriptKelvarion2.txt"), "Reference ref.bmp\nQuitter \n");
  ProcessResult quit = RunKelvarionIn(dir.path, {});
  EXPECT_EQ(quit.exitCode, 0);
  EXPECT_EQ(quit.output.find("Appuyez sur entree"), std::string::npos);
}

struct FatalSettingsCase {
  const char* script;
  const char* message;
};

TEST(RunDriver, SettingsThatCannotRunAreRefusedBeforeTheReferenceIsLoaded) {
  const FatalSettingsCase cases[] = {
      {"Translation 10 -2\n", "Erreur : pas de translation negatif (-2)\n"},
      {"Angle nan 2 1\n", "Erreur : angle minimum invalide (nan)\n"},
      {"Angle 0 inf 1\n", "Erreur : angle maximum invalide (inf)\n"},
      {"Angle 0 0 -inf\n", "Erreur : resolution angulaire invalide (-inf)\n"},
      {"Angle -2 2 -1\n", "Erreur : resolution angulaire negative (-0.017453 radian)\n"},
      {"Bloc 32 10 5 0\n", "Erreur : pas de decalage de bloc invalide (0.000000)\n"},
      {"Bloc 32 10 5 -1\n", "Erreur : pas de decalage de bloc invalide (-1.000000)\n"},
      {"Bloc 32 -1 5 1\n", "Erreur : largeur de recherche negative (-1)\n"},
  };
  for (const FatalSettingsCase& c : cases) {
    RunDirectory dir;
    WriteWholeFile(dir.File("script.txt"), std::string("Reference ref.bmp\n") + c.script);
    ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"});
    EXPECT_EQ(run.signal, SIGABRT) << c.script;
    std::string tail = c.message + FATAL;
    EXPECT_EQ(Tail(run, tail.size()), tail) << c.script;
    // Refused before the reference is loaded, and before the log is created.
    EXPECT_EQ(run.output.find("Chargement du fichier"), std::string::npos) << c.script;
    EXPECT_FALSE(FileExists(dir.File("shift.lst"))) << c.script;
  }
}

TEST(RunDriver, UnopenableReferenceOrLogAndZeroResolutionAreFatal) {
  RunDirectory dir;
  WriteWholeFile(dir.File("script.txt"), "Reference missing.bmp\n");
  ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"});
  EXPECT_EQ(run.signal, SIGABRT);
  std::string tail = "Chargement du fichier missing.bmpErreur : impossible d'ouvrir l'image missing.bmp\n" + FATAL;
  EXPECT_EQ(Tail(run, tail.size()), tail);

  WriteReference(dir.File("ref.bmp"), 12, 8);
  WriteWholeFile(dir.File("script.txt"), "Reference ref.bmp\nSource ref.bmp r.bmp\nAngle 0 0 0\n");
  run = RunKelvarionIn(dir.path, {"script.txt"});
  EXPECT_EQ(run.signal, SIGABRT);
  tail = "Ajustement global : \nErreur : resolution angulaire nulle" + FATAL;
  EXPECT_EQ(Tail(run, tail.size()), tail);

  unlink(dir.File("shift.lst").c_str());
  ASSERT_EQ(mkdir(dir.File("shift.lst").c_str(), 0755), 0);
  run = RunKelvarionIn(dir.path, {"script.txt"});
  EXPECT_EQ(run.signal, SIGABRT);
  tail = "Chargement du fichier ref.bmpErreur : impossible de creer le fichier shift.lst (Is a directory)\n" + FATAL;
  EXPECT_EQ(Tail(run, tail.size()), tail);
}

TEST(RunDriver, DegenerateSettingsThatCanRunEnd) {
  RunDirectory dir;
  WriteReference(dir.File("ref.bmp"), 12, 8);
  const char* const settings[] = {
      "Angle 1 1 -1\nBloc 0 -5 5 0\n",  // checked only where they are used
      "Angle 1e9 1.0000001e9 1\n",      // one degree no longer moves the float angle
      "Angle 0 1 1e-30\n",              // the thirds stop shrinking
      "Bloc 2147483647 3 2147483647 1\n",  // block positions past 32 bits
      "Bloc 4 2147483647 1 1\n",           // no block fits
      "Bloc 1 0 -1000 0.5\n",              // a grid wider than the picture, no trial
  };
  for (const char* setting : settings) {
    WriteWholeFile(dir.File("script.txt"), std::string("Reference ref.bmp\nSource ref.bmp r.bmp\n") + setting);
    ProcessResult run = RunKelvarionIn(dir.path, {"script.txt"});
    EXPECT_EQ(run.exitCode, 0) << setting << run.output;
  }
}

}  // namespace
