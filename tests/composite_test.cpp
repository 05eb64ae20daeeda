#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>
#include <unistd.h>

#include "composite/composite.h"
#include "console_capture.h"
#include "image/output_file.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "test_pictures.h"

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Each test runs in its own empty directory; the composite name and counters
// are reset around it.
class CompositeTest : public ::testing::Test {
 protected:
  std::filesystem::path saved;
  std::filesystem::path directory;
  std::string compositeName;

  void SetUp() override {
    saved = std::filesystem::current_path();
    char pattern[] = "/tmp/composite_testXXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    directory = pattern;
    std::filesystem::current_path(directory);
    WriteFailureCount = 0;
    OutputFailAfterBytes = -1;
    ImageTable.CompositeName = nullptr;
    ImageTable.ImageCount = 0;
  }

  void TearDown() override {
    delete[] Accumulator;
    Accumulator = nullptr;
    ImageTable.CompositeName = nullptr;
    OutputFailAfterBytes = -1;
    WriteFailureCount = 0;
    std::filesystem::current_path(saved);
    std::filesystem::remove_all(directory);
  }

  void StartComposite(int32_t width, int32_t height, int32_t x0, int32_t y0) {
    Reference = Image{nullptr, width, height, x0, y0};
    delete[] Accumulator;
    CreateAccumulator();
  }

  void NameComposite(const std::string& name, int32_t imageCount) {
    compositeName = name;
    ImageTable.CompositeName = compositeName.data();
    ImageTable.ImageCount = imageCount;
  }

  uint32_t Sum(int32_t x, int32_t y, int plane) {
    return Accumulator[((size_t)y * Reference.width + x) * 3 + plane];
  }

  std::vector<std::string> DirectoryEntries() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
};

// Colour bytes (blue, green, red) of pixel (x, y) of a 24-bit bottom-up BMP file.
std::vector<int> BmpPixel(const std::string& file, int32_t width, int32_t height, int32_t x, int32_t y) {
  size_t stride = ((size_t)width * 3 + 3) / 4 * 4;
  size_t at = 54 + (size_t)(height - 1 - y) * stride + (size_t)x * 3;
  return {(unsigned char)file[at], (unsigned char)file[at + 1], (unsigned char)file[at + 2]};
}

// First 16-bit big-endian value of a FITS plane.
int FirstFitsValue(const std::string& file) {
  return (unsigned char)file[2880] * 256 + (unsigned char)file[2881];
}

struct WeightCase {
  const char* name;
  unsigned char weight;
  unsigned char colour;
  uint32_t added;
};

TEST_F(CompositeTest, WeightScalesTheColourWithTruncation) {
  const WeightCase cases[] = {
      {"full weight keeps the colour", 255, 200, 200},
      {"weight 128 of 255 adds 128", 128, 255, 128},
      {"weight 127 of 200 truncates 99.6", 127, 200, 99},
      {"weight 254 of 1 truncates to 0", 254, 1, 0},
      {"weight 1 of 255 adds 1", 1, 255, 1},
      {"empty pixel adds nothing", 0, 255, 0},
  };
  for (const WeightCase& c : cases) {
    StartComposite(1, 1, 0, 0);
    TestPicture image = MakePicture(1, 1, 0, 0);
    SetPixel(image, 0, 0, c.colour, c.colour, c.colour, c.weight);
    AccumulateComposite(image.image);
    for (int plane = 0; plane < 3; plane++) EXPECT_EQ(Sum(0, 0, plane), c.added) << c.name;
  }
}

struct PairingCase {
  const char* name;
  int32_t refWidth, refHeight, refX0, refY0;
  int32_t width, height, x0, y0;
  int64_t dx, dy;   // reference (x, y) meets image (x + dx, y + dy)
  int covered;      // reference pixels that receive something
};

TEST_F(CompositeTest, PairsThroughTheReferencePoints) {
  const PairingCase cases[] = {
      {"same point", 6, 4, 3, 2, 6, 4, 3, 2, 0, 0, 24},
      {"image point 5 further right: last five columns get nothing", 6, 4, 3, 2, 6, 4, 8, 2, 5, 0, 4},
      {"image point 2 further left", 6, 4, 3, 2, 6, 4, 1, 2, -2, 0, 16},
      {"diagonal offset", 6, 4, 3, 2, 6, 4, 2, 3, -1, 1, 15},
      {"small image in the lower right corner", 6, 4, 3, 2, 3, 2, 0, 0, -3, -2, 6},
      {"large image overhangs every side", 6, 4, 3, 2, 10, 8, 5, 4, 2, 2, 24},
      {"image beside the frame", 6, 4, 3, 2, 6, 4, 9, 2, 6, 0, 0},
      {"image below the frame", 6, 4, 3, 2, 6, 4, 3, -2, 0, -4, 0},
      {"point difference beyond 32 bits", 6, 4, INT32_MIN + 1, 0, 6, 4, INT32_MAX, 0, 4294967294, 0, 0},
  };
  for (const PairingCase& c : cases) {
    StartComposite(c.refWidth, c.refHeight, c.refX0, c.refY0);
    TestPicture image = MakePicture(c.width, c.height, c.x0, c.y0);
    for (int32_t y = 0; y < c.height; y++)
      for (int32_t x = 0; x < c.width; x++) SetPixel(image, x, y, 1 + x, 1 + y, 7, 255);
    AccumulateComposite(image.image);
    int covered = 0;
    for (int32_t y = 0; y < c.refHeight; y++) {
      for (int32_t x = 0; x < c.refWidth; x++) {
        int64_t sx = x + c.dx;
        int64_t sy = y + c.dy;
        bool inside = sx >= 0 && sx < c.width && sy >= 0 && sy < c.height;
        covered += Sum(x, y, 2) != 0;
        EXPECT_EQ(Sum(x, y, 0), inside ? 1 + sx : 0) << c.name << " at " << x << "," << y;
        EXPECT_EQ(Sum(x, y, 1), inside ? 1 + sy : 0) << c.name << " at " << x << "," << y;
        EXPECT_EQ(Sum(x, y, 2), inside ? 7u : 0u) << c.name << " at " << x << "," << y;
      }
    }
    EXPECT_EQ(covered, c.covered) << c.name;
  }
}

struct MeanCase {
  const char* name;
  int32_t imageCount;
  std::vector<unsigned char> loaded;  // the red byte of each image that loaded
  int sum;
  int mean;
  int greenMean;  // every loaded image has green 255
};

TEST_F(CompositeTest, MeanDividesByTheImagesListed) {
  const MeanCase cases[] = {
      {"100 and 201 truncate to 150", 2, {100, 201}, 301, 150, 255},
      {"one of three missing still divides by 3", 3, {255, 255}, 510, 170, 170},
      {"41 white images stay white", 41, std::vector<unsigned char>(41, 255), 10455, 255, 255},
      {"no image listed", 0, {}, 0, 0, 0},
  };
  for (const MeanCase& c : cases) {
    StartComposite(2, 1, 1, 0);
    NameComposite("sum.bmp", c.imageCount);
    for (unsigned char red : c.loaded) {
      TestPicture image = MakePicture(2, 1, 1, 0);
      SetPixel(image, 0, 0, 0, 255, red, 255);  // the second pixel stays empty
      AccumulateComposite(image.image);
    }
    ConsoleCapture capture = BeginCapture();
    SaveComposite();
    EndCapture(capture);
    EXPECT_EQ(Accumulator, nullptr) << c.name;
    EXPECT_EQ(Composite.pixels, nullptr) << c.name;
    EXPECT_EQ(Composite.width, 2) << c.name;
    EXPECT_EQ(Composite.height, 1) << c.name;
    EXPECT_EQ(Composite.x0, 1) << c.name;
    EXPECT_EQ(Composite.y0, 0) << c.name;
    std::string bmp = ReadFile("sum.bmp");
    ASSERT_EQ(bmp.size(), 62u) << c.name;
    EXPECT_EQ(BmpPixel(bmp, 2, 1, 0, 0), (std::vector<int>{0, c.greenMean, c.mean})) << c.name;
    EXPECT_EQ(BmpPixel(bmp, 2, 1, 1, 0), (std::vector<int>{0, 0, 0})) << c.name;
    // Up to 127 images the red plane holds the raw sum.
    EXPECT_EQ(FirstFitsValue(ReadFile("sumR.fit")), c.sum) << c.name;
  }
}

struct NameCase {
  const char* name;
  std::vector<std::string> files;  // sorted
  const char* bmp;
};

TEST_F(CompositeTest, BaseNameIsCutBeforeTheFirstDot) {
  const NameCase cases[] = {
      {"sum.bmp", {"sum.bmp", "sumB.fit", "sumR.fit", "sumV.fit"}, "sum.bmp"},
      {"a.b.c", {"a.bmp", "aB.fit", "aR.fit", "aV.fit"}, "a.bmp"},
      {"./out.bmp", {".bmp", "B.fit", "R.fit", "V.fit"}, ".bmp"},
      {"plain", {"plain.bmp", "plainB.fit", "plainR.fit", "plainV.fit"}, "plain.bmp"},
  };
  for (const NameCase& c : cases) {
    for (const std::string& file : DirectoryEntries()) std::filesystem::remove(directory / file);
    StartComposite(3, 2, 1, 1);
    NameComposite(c.name, 1);
    ConsoleCapture capture = BeginCapture();
    SaveComposite();
    std::string console = EndCapture(capture);
    EXPECT_EQ(console, std::string("Sauvegarde de l'image compositee : ") + c.name +
                           "\nSauvegarde d'une image " + c.bmp + " FIN\n")
        << c.name;
    EXPECT_EQ(DirectoryEntries(), c.files) << c.name;
    EXPECT_EQ(WriteFailureCount, 0) << c.name;
  }
}

TEST_F(CompositeTest, FilesHoldRedGreenAndBluePlanes) {
  StartComposite(1, 1, 0, 0);
  NameComposite("sum.bmp", 1);
  TestPicture image = MakePicture(1, 1, 0, 0);
  SetPixel(image, 0, 0, 10, 20, 30, 255);
  AccumulateComposite(image.image);
  ConsoleCapture capture = BeginCapture();
  SaveComposite();
  EndCapture(capture);
  EXPECT_EQ(FirstFitsValue(ReadFile("sumR.fit")), 30);
  EXPECT_EQ(FirstFitsValue(ReadFile("sumV.fit")), 20);
  EXPECT_EQ(FirstFitsValue(ReadFile("sumB.fit")), 10);
  EXPECT_EQ(BmpPixel(ReadFile("sum.bmp"), 1, 1, 0, 0), (std::vector<int>{10, 20, 30}));
}

TEST_F(CompositeTest, NameLongerThan512IsUsedWhole) {
  // Path components are limited in length, so the length comes from directories.
  std::string base;
  for (int i = 0; i < 6; i++) base += std::string(100, (char)('a' + i)) + "/";
  base += "stack";
  ASSERT_GT(base.size(), 512u);
  std::filesystem::create_directories(std::filesystem::path(base).parent_path());
  std::string name = base + ".final.bmp";
  StartComposite(4, 3, 2, 1);
  NameComposite(name, 1);
  ConsoleCapture capture = BeginCapture();
  SaveComposite();
  std::string console = EndCapture(capture);
  EXPECT_EQ(console, "Sauvegarde de l'image compositee : " + name + "\nSauvegarde d'une image " + base +
                         ".bmp FIN\n");
  EXPECT_EQ(ReadFile(base + "R.fit").size(), 5760u);
  EXPECT_EQ(ReadFile(base + "V.fit").size(), 5760u);
  EXPECT_EQ(ReadFile(base + "B.fit").size(), 5760u);
  EXPECT_EQ(ReadFile(base + ".bmp").size(), 54u + 12 * 3);
  EXPECT_EQ(WriteFailureCount, 0);
}

struct BlockedCase {
  const char* blocked;  // a directory stands where this file should go
  const char* console;
};

TEST_F(CompositeTest, FileThatCannotBeWrittenLeavesTheOthers) {
  const char* header = "Sauvegarde de l'image compositee : sum.bmp\n";
  const BlockedCase cases[] = {
      {"sumR.fit", "Erreur : impossible d'ecrire le fichier sumR.fit (Is a directory)\n"
                   "Sauvegarde d'une image sum.bmp FIN\n"},
      {"sumV.fit", "Erreur : impossible d'ecrire le fichier sumV.fit (Is a directory)\n"
                   "Sauvegarde d'une image sum.bmp FIN\n"},
      {"sumB.fit", "Erreur : impossible d'ecrire le fichier sumB.fit (Is a directory)\n"
                   "Sauvegarde d'une image sum.bmp FIN\n"},
      {"sum.bmp", "Sauvegarde d'une image sum.bmp\n"
                  "Erreur : impossible d'ecrire le fichier sum.bmp (Is a directory)\n"},
  };
  const std::vector<std::string> all = {"sum.bmp", "sumB.fit", "sumR.fit", "sumV.fit"};
  for (const BlockedCase& c : cases) {
    for (const std::string& file : DirectoryEntries()) std::filesystem::remove_all(directory / file);
    std::filesystem::create_directory(c.blocked);
    WriteFailureCount = 0;
    StartComposite(48, 30, 24, 15);
    NameComposite("sum.bmp", 2);
    ConsoleCapture capture = BeginCapture();
    SaveComposite();
    std::string console = EndCapture(capture);
    EXPECT_EQ(console, header + std::string(c.console)) << c.blocked;
    EXPECT_EQ(WriteFailureCount, 1) << c.blocked;
    EXPECT_EQ(DirectoryEntries(), all) << c.blocked;  // no temporary left behind
    for (const std::string& file : all) {
      if (file == c.blocked) {
        EXPECT_TRUE(std::filesystem::is_directory(file)) << c.blocked;
      } else {
        EXPECT_EQ(ReadFile(file).size(), file == "sum.bmp" ? 54u + 144 * 30 : 5760u) << c.blocked << " " << file;
      }
    }
  }
}

TEST_F(CompositeTest, FullDiskForThePlanesStillWritesTheMean) {
  // 5760-byte planes do not fit in 5000 bytes; the 4374-byte picture does.
  StartComposite(48, 30, 24, 15);
  NameComposite("sum.bmp", 2);
  OutputFailAfterBytes = 5000;
  ConsoleCapture capture = BeginCapture();
  SaveComposite();
  std::string console = EndCapture(capture);
  OutputFailAfterBytes = -1;
  EXPECT_EQ(console,
            "Sauvegarde de l'image compositee : sum.bmp\n"
            "Erreur : impossible d'ecrire le fichier sumR.fit (No space left on device)\n"
            "Erreur : impossible d'ecrire le fichier sumV.fit (No space left on device)\n"
            "Erreur : impossible d'ecrire le fichier sumB.fit (No space left on device)\n"
            "Sauvegarde d'une image sum.bmp FIN\n");
  EXPECT_EQ(WriteFailureCount, 3);
  EXPECT_EQ(DirectoryEntries(), std::vector<std::string>{"sum.bmp"});
  EXPECT_EQ(ReadFile("sum.bmp").size(), 4374u);
}

}  // namespace
