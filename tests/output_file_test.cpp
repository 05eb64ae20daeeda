#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "console_capture.h"
#include "image/output_file.h"
#include "scratch_directory.h"

namespace {

TEST(OutputFile, TemporaryBesideTheNameUntilClosed) {
  std::string directory = MakeScratchDirectory();
  std::string path = directory + "out.bin";
  mode_t savedMask = umask(022);
  OutputFile file;
  ASSERT_TRUE(OpenOutputFile(file, path.c_str()));
  std::vector<std::string> names = ListDirectory(directory);
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(names[0].rfind("out.bin.tmp", 0), 0u) << names[0];
  WriteOutput(file, "abc", 3);
  WriteOutput(file, "de", 2);
  EXPECT_EQ(file.written, 5);
  EXPECT_TRUE(CloseOutputFile(file));
  umask(savedMask);
  EXPECT_EQ(ListDirectory(directory), std::vector<std::string>{"out.bin"});
  EXPECT_EQ(ReadFileBytes(path), (Bytes{'a', 'b', 'c', 'd', 'e'}));
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0644u);  // as a plain create would give, not mkstemp's 0600
  RemoveScratchDirectory(directory);
}

TEST(OutputFile, WritesAfterAFailureAreIgnored) {
  std::string directory = MakeScratchDirectory();
  OutputFile file;
  ASSERT_TRUE(OpenOutputFile(file, (directory + "out.bin").c_str()));
  OutputFailAfterBytes = 4;
  WriteOutput(file, "abc", 3);
  EXPECT_EQ(file.error, 0);
  WriteOutput(file, "de", 2);
  EXPECT_EQ(file.error, ENOSPC);
  OutputFailAfterBytes = -1;
  WriteOutput(file, "f", 1);
  EXPECT_EQ(file.written, 3);
  EXPECT_FALSE(CloseOutputFile(file));
  EXPECT_EQ(file.error, ENOSPC);
  EXPECT_EQ(ListDirectory(directory), std::vector<std::string>{});
  RemoveScratchDirectory(directory);
}

TEST(OutputFile, MissingDirectoryFailsAtOpen) {
  OutputFile file;
  std::string path = ::testing::TempDir() + "kelvarion_no_such_directory/out.bin";
  EXPECT_FALSE(OpenOutputFile(file, path.c_str()));
  EXPECT_EQ(file.error, ENOENT);
  EXPECT_EQ(file.path, nullptr);
  EXPECT_EQ(file.tempPath, nullptr);
}

TEST(OutputFile, RenameOverADirectoryFailsAndCleansUp) {
  std::string directory = MakeScratchDirectory();
  std::string path = directory + "taken";
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  OutputFile file;
  ASSERT_TRUE(OpenOutputFile(file, path.c_str()));
  WriteOutput(file, "abc", 3);
  EXPECT_FALSE(CloseOutputFile(file));
  EXPECT_EQ(file.error, EISDIR);
  EXPECT_EQ(ListDirectory(directory), std::vector<std::string>{"taken"});
  EXPECT_EQ(ListDirectory(path + "/"), std::vector<std::string>{});
  RemoveScratchDirectory(directory);
}

TEST(OutputFile, FailureReportedAsALineAndCounted) {
  int failures = WriteFailureCount;
  ConsoleCapture capture = BeginCapture();
  ReportOutputFailure("x/y.bmp", EACCES);
  EXPECT_EQ(EndCapture(capture), "Erreur : impossible d'ecrire le fichier x/y.bmp (Permission denied)\n");
  EXPECT_EQ(WriteFailureCount, failures + 1);
}

}  // namespace
