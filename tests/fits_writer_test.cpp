#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>
#include <unistd.h>

#include "composite/composite.h"
#include "console_capture.h"
#include "image/fits_writer.h"
#include "image/output_file.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// keyPart: columns 1 to 8; valuePart: columns 10 to 30.
std::string Card(const std::string& keyPart, const std::string& valuePart) {
  EXPECT_EQ(keyPart.size(), 8u) << keyPart;
  EXPECT_EQ(valuePart.size(), 21u) << valuePart;
  return keyPart + "=" + valuePart + std::string(50, ' ');
}

// Each test runs in its own empty directory with a fresh plane and counters.
class FitsWriter : public ::testing::Test {
 protected:
  std::filesystem::path saved;
  std::filesystem::path directory;
  std::vector<uint32_t> sums;

  void SetUp() override {
    saved = std::filesystem::current_path();
    char pattern[] = "/tmp/fits_writer_testXXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    directory = pattern;
    std::filesystem::current_path(directory);
    WriteFailureCount = 0;
    OutputFailAfterBytes = -1;
    UsePlane(1, 1, 1);
  }

  void TearDown() override {
    Accumulator = nullptr;
    OutputFailAfterBytes = -1;
    WriteFailureCount = 0;
    std::filesystem::current_path(saved);
    std::filesystem::remove_all(directory);
  }

  void UsePlane(int32_t width, int32_t height, int32_t imageCount) {
    Reference = Image{nullptr, width, height, 0, 0};
    ImageTable.ImageCount = imageCount;
    sums.assign((size_t)width * height * 3, 0);
    Accumulator = sums.data();
  }

  void SetSums(int32_t x, int32_t y, uint32_t blue, uint32_t green, uint32_t red) {
    size_t entry = ((size_t)y * Reference.width + x) * 3;
    sums[entry] = blue;
    sums[entry + 1] = green;
    sums[entry + 2] = red;
  }

  std::vector<std::string> DirectoryEntries() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
      names.push_back(entry.path().filename().string());
    return names;
  }
};

std::string CardText(void (*write)(OutputFile&)) {
  OutputFile file;
  EXPECT_TRUE(OpenOutputFile(file, "card"));
  write(file);
  EXPECT_TRUE(CloseOutputFile(file));
  return ReadFile("card");
}

TEST_F(FitsWriter, Naxis1CardColumns) {
  std::string card = CardText([](OutputFile& f) { WriteIntCard(f, "NAXIS1", 640); });
  ASSERT_EQ(card.size(), 80u);
  EXPECT_EQ(card.substr(0, 6), "NAXIS1");        // columns 1-6
  EXPECT_EQ(card.substr(6, 2), "  ");            // columns 7-8
  EXPECT_EQ(card[8], '=');                       // column 9
  EXPECT_EQ(card.substr(9, 18), std::string(18, ' '));  // columns 10-27
  EXPECT_EQ(card.substr(27, 3), "640");          // columns 28-30
  EXPECT_EQ(card.substr(30), std::string(50, ' '));     // columns 31-80
}

struct IntCardCase {
  const char* name;
  const char* keyword;
  int32_t value;
  const char* keyPart;
  const char* valuePart;
};

TEST_F(FitsWriter, IntCardsRightAlignTheValueToColumn30) {
  const IntCardCase cases[] = {
      {"zero", "MIPS-LO", 0, "MIPS-LO ", "                    0"},
      {"negative", "NAXIS", -5, "NAXIS   ", "                   -5"},
      {"most negative", "BITPIX", INT32_MIN, "BITPIX  ", "          -2147483648"},
      {"eight-letter keyword", "ABCDEFGH", 7, "ABCDEFGH", "                    7"},
  };
  for (const IntCardCase& c : cases) {
    OutputFile file;
    ASSERT_TRUE(OpenOutputFile(file, "card"));
    WriteIntCard(file, c.keyword, c.value);
    ASSERT_TRUE(CloseOutputFile(file));
    EXPECT_EQ(ReadFile("card"), Card(c.keyPart, c.valuePart)) << c.name;
  }
}

TEST_F(FitsWriter, CharCardHoldsOneCharacterInColumn30) {
  std::string card = CardText([](OutputFile& f) { WriteCharCard(f, "SIMPLE", 'T'); });
  EXPECT_EQ(card, Card("SIMPLE  ", "                    T"));
}

TEST_F(FitsWriter, HeaderIsSevenCardsThenEndAndBlanksTo2880) {
  UsePlane(3, 2, 10);
  SaveFitsPlane("plane.fit", 0);
  std::string expected = Card("SIMPLE  ", "                    T") +
                         Card("BITPIX  ", "                   16") +
                         Card("NAXIS   ", "                    2") +
                         Card("NAXIS1  ", "                    3") +
                         Card("NAXIS2  ", "                    2") +
                         Card("MIPS-HI ", "                 2560") +
                         Card("MIPS-LO ", "                    0") + "END" + std::string(2317, ' ');
  ASSERT_EQ(expected.size(), 2880u);
  std::string file = ReadFile("plane.fit");
  ASSERT_GE(file.size(), 2880u);
  EXPECT_EQ(file.substr(0, 2880), expected);
}

struct SizeCase {
  const char* name;
  int32_t width;
  int32_t height;
  size_t fileSize;
};

TEST_F(FitsWriter, DataAreZeroFilledToWholeBlocks) {
  const SizeCase cases[] = {
      {"100x100 needs 160 zeros", 100, 100, 23040},
      {"48x30 ends on a block", 48, 30, 5760},
      {"one value", 1, 1, 5760},
      {"empty plane is the header alone", 0, 0, 2880},
      {"one byte pair past a block", 1441, 1, 8640},
  };
  for (const SizeCase& c : cases) {
    // Every value 0x0101, so no data byte can pass for the fill.
    UsePlane(c.width, c.height, 10);
    sums.assign(sums.size(), 257);
    SaveFitsPlane("plane.fit", 2);
    std::string file = ReadFile("plane.fit");
    ASSERT_EQ(file.size(), c.fileSize) << c.name;
    size_t dataEnd = 2880 + (size_t)c.width * c.height * 2;
    EXPECT_EQ(file.substr(2880, dataEnd - 2880), std::string(dataEnd - 2880, '\x01')) << c.name;
    EXPECT_EQ(file.substr(dataEnd), std::string(c.fileSize - dataEnd, '\0')) << c.name;
  }
}

struct ValueCase {
  const char* name;
  int32_t imageCount;
  uint32_t sum;
  const char* mipsHi;  // columns 10 to 30 of the MIPS-HI card
  unsigned char high;
  unsigned char low;
};

TEST_F(FitsWriter, ValuesAreTheSumScaledBy127AtMost) {
  const ValueCase cases[] = {
      {"10 images keep the raw sum 300", 10, 300, "                 2560", 0x01, 0x2C},
      {"one image", 1, 255, "                  256", 0x00, 0xFF},
      {"126 images keep the raw sum", 126, 32130, "                32256", 0x7D, 0x82},
      {"127 images keep the raw sum", 127, 32385, "                32512", 0x7E, 0x81},
      {"128 images are scaled", 128, 32640, "                32512", 0x7E, 0x81},
      {"200 images at 255 clamp to 32385", 200, 51000, "                32512", 0x7E, 0x81},
      {"200 images truncate 127/200", 200, 1, "                32512", 0x00, 0x00},
      {"200 images truncate 254/200", 200, 2, "                32512", 0x00, 0x01},
      {"largest table at 255", MAX_IMAGE_COUNT, 255u * MAX_IMAGE_COUNT, "                32512", 0x7E, 0x81},
      {"no image writes zeros", 0, 500, "                    0", 0x00, 0x00},
  };
  for (const ValueCase& c : cases) {
    UsePlane(1, 1, c.imageCount);
    SetSums(0, 0, 7, c.sum, 9);
    SaveFitsPlane("plane.fit", 1);
    std::string file = ReadFile("plane.fit");
    ASSERT_EQ(file.size(), 5760u) << c.name;
    EXPECT_EQ(file.substr(400, 80), Card("MIPS-HI ", c.mipsHi)) << c.name;
    EXPECT_EQ((unsigned char)file[2880], c.high) << c.name;
    EXPECT_EQ((unsigned char)file[2881], c.low) << c.name;
  }
}

TEST_F(FitsWriter, BottomRowFirstLeftToRight) {
  UsePlane(3, 2, 10);
  SetSums(0, 0, 0, 1, 0);
  SetSums(1, 0, 0, 2, 0);
  SetSums(2, 0, 0, 3, 0);
  SetSums(0, 1, 0, 0x104, 0);
  SetSums(1, 1, 0, 5, 0);
  SetSums(2, 1, 0, 6, 0);
  SaveFitsPlane("plane.fit", 1);
  std::string file = ReadFile("plane.fit");
  ASSERT_EQ(file.size(), 5760u);
  EXPECT_EQ(file.substr(2880, 12), std::string("\x01\x04\x00\x05\x00\x06\x00\x01\x00\x02\x00\x03", 12));
}

TEST_F(FitsWriter, PrintsNothingAndReplacesAnExistingFile) {
  std::ofstream("plane.fit") << "an older file that is longer than nothing";
  UsePlane(2, 2, 10);
  ConsoleCapture capture = BeginCapture();
  SaveFitsPlane("plane.fit", 0);
  EXPECT_EQ(EndCapture(capture), "");
  EXPECT_EQ(ReadFile("plane.fit").size(), 5760u);
  EXPECT_EQ(ReadFile("plane.fit").substr(0, 6), "SIMPLE");
  EXPECT_EQ(WriteFailureCount, 0);
  EXPECT_EQ(DirectoryEntries(), std::vector<std::string>{"plane.fit"});
}

struct FailureCase {
  const char* name;
  const char* path;
  int64_t failAfter;
  const char* console;
};

TEST_F(FitsWriter, FailedWriteIsReportedAndKeepsTheOldFile) {
  const FailureCase cases[] = {
      {"directory missing", "missing/plane.fit", -1,
       "Erreur : impossible d'ecrire le fichier missing/plane.fit (No such file or directory)\n"},
      {"disk full in the cards", "plane.fit", 100,
       "Erreur : impossible d'ecrire le fichier plane.fit (No space left on device)\n"},
      {"disk full in the zero fill", "plane.fit", 22900,
       "Erreur : impossible d'ecrire le fichier plane.fit (No space left on device)\n"},
  };
  for (const FailureCase& c : cases) {
    std::ofstream("plane.fit") << "old";
    UsePlane(100, 100, 10);
    WriteFailureCount = 0;
    OutputFailAfterBytes = c.failAfter;
    ConsoleCapture capture = BeginCapture();
    SaveFitsPlane(c.path, 2);
    std::string console = EndCapture(capture);
    OutputFailAfterBytes = -1;
    EXPECT_EQ(console, c.console) << c.name;
    EXPECT_EQ(WriteFailureCount, 1) << c.name;
    EXPECT_EQ(ReadFile("plane.fit"), "old") << c.name;
    EXPECT_EQ(DirectoryEntries(), std::vector<std::string>{"plane.fit"}) << c.name;
  }
}

// An independent reader must accept what we write.
TEST_F(FitsWriter, FitsverifyReportsNoError) {
  if (system("command -v fitsverify > /dev/null 2>&1") != 0)
    GTEST_SKIP() << "fitsverify is not installed (Debian package fitsverify); FITS validation skipped";
  struct Plane {
    const char* path;
    int32_t width;
    int32_t height;
    int32_t imageCount;
  };
  const Plane planes[] = {{"square.fit", 100, 100, 200}, {"block.fit", 48, 30, 10}, {"one.fit", 1, 1, 1}};
  for (const Plane& p : planes) {
    UsePlane(p.width, p.height, p.imageCount);
    uint32_t state = 12345;
    for (uint32_t& s : sums) s = NextRandom(state) % (255u * p.imageCount + 1);
    SaveFitsPlane(p.path, 1);
    std::string command = std::string("fitsverify ") + p.path + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string output;
    char buffer[4096];
    size_t count;
    while ((count = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, count);
    int status = pclose(pipe);
    EXPECT_NE(output.find(" and 0 error(s). ****"), std::string::npos) << p.path << "\n" << output;
    EXPECT_EQ(output.find("*** Error"), std::string::npos) << p.path << "\n" << output;
    EXPECT_EQ(status, 0) << p.path << "\n" << output;
  }
}

}  // namespace
