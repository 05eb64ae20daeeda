#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "run/settings.h"

namespace {

const char FATAL_LINES[] = "Erreur fatale, appuyez sur entree.\nFatal error. Press return.\n";

std::string TemporaryPath() {
  char path[] = "/tmp/kelvarion_fatalXXXXXX";
  int descriptor = mkstemp(path);
  EXPECT_GE(descriptor, 0);
  close(descriptor);
  return path;
}

// Parses the script at path in a child that must end by abort, and returns
// everything the child printed.
std::string FatalOutput(const std::string& scriptPath) {
  std::string outputPath = TemporaryPath();
  fflush(stdout);
  EXPECT_EXIT(
      {
        freopen("/dev/null", "r", stdin);
        freopen(outputPath.c_str(), "w", stdout);
        Settings.ScriptPath = scriptPath.c_str();
        ParseScript();
      },
      ::testing::KilledBySignal(SIGABRT), "");
  std::ifstream file(outputPath, std::ios::binary);
  std::stringstream output;
  output << file.rdbuf();
  unlink(outputPath.c_str());
  return output.str();
}

std::string Header(const std::string& path) {
  return "Lecture des parametres\n\nFichier de script : " + path + "\n\n\n";
}

TEST(ScriptReaderFatal, ScriptThatCannotBeOpened) {
  const std::string missing = "/tmp/kelvarion_no_such_dir/script.txt";
  EXPECT_EQ(FatalOutput(missing),
            "Lecture des parametres\nImpossible d'ouvrir le fichier " + missing + "\n" + FATAL_LINES);
  const std::string directory = "/tmp";
  EXPECT_EQ(FatalOutput(directory),
            "Lecture des parametres\nImpossible d'ouvrir le fichier /tmp\n" + std::string(FATAL_LINES));
}

// The whole path is echoed, however long.
TEST(ScriptReaderFatal, LongPathIsNotCut) {
  std::string path = "/tmp/";
  for (int i = 0; i < 300; i++) path += "./";
  path += "kelvarion_missing_script";
  EXPECT_EQ(FatalOutput(path),
            "Lecture des parametres\nImpossible d'ouvrir le fichier " + path + "\n" + FATAL_LINES);
}

TEST(ScriptReaderFatal, ImageLimits) {
  struct Case { const char* edge; std::string script; std::string tail; };
  const std::string full = "Sourcesbmp g r 1 29999\n";
  const Case cases[] = {
      {"numbered run one too long", "Sourcesbmp g r 0 29999\n",
       "Debut=0  Fin=29999\nTrop d'images \x88 traiter\n"},
      {"run count needs more than 32 bits", "Sourcesbmp g r -2147483648 2147483647\n",
       "Debut=-2147483648  Fin=2147483647\nTrop d'images \x88 traiter\n"},
      {"Source on a full table, even without names", full + "Source \n",
       "resultat: r29999.bmp\nErreur : trop d'images \x88 traiter\n"},
      {"one more numbered image on a full table", full + "Sourcesbmp a b 7 7\n",
       "Debut=7  Fin=7\nTrop d'images \x88 traiter\n"},
  };
  for (const Case& c : cases) {
    std::string path = TemporaryPath();
    std::ofstream(path, std::ios::binary) << c.script;
    std::string output = FatalOutput(path);
    unlink(path.c_str());
    std::string expectedEnd = c.tail + FATAL_LINES;
    EXPECT_EQ(output.substr(0, Header(path).size()), Header(path)) << c.edge;
    ASSERT_GE(output.size(), expectedEnd.size()) << c.edge;
    EXPECT_EQ(output.substr(output.size() - expectedEnd.size()), expectedEnd) << c.edge;
  }
}

}  // namespace
