#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "console_capture.h"
#include "image/image.h"
#include "scratch_directory.h"

namespace {

struct Header {
  int32_t width;
  int32_t height;
  uint32_t depth;
  uint32_t compression;
  uint32_t offset;
  uint32_t infoSize;
  uint32_t coloursUsed;
};

void Put(Bytes& bytes, size_t at, uint32_t value, int count) {
  for (int i = 0; i < count; i++) bytes[at + i] = (unsigned char)(value >> (8 * i));
}

// The 54 header bytes; the signature and the unread fields hold junk on purpose.
Bytes HeaderBytes(const Header& h) {
  Bytes bytes(54, 0xA5);
  Put(bytes, 10, h.offset, 4);
  Put(bytes, 14, h.infoSize, 4);
  Put(bytes, 18, (uint32_t)h.width, 4);
  Put(bytes, 22, (uint32_t)h.height, 4);
  Put(bytes, 28, h.depth, 2);
  Put(bytes, 30, h.compression, 4);
  Put(bytes, 46, h.coloursUsed, 4);
  return bytes;
}

std::string WriteFile(const std::string& directory, const std::string& name, const Bytes& bytes) {
  std::string path = directory + name + ".bmp";
  WriteFileBytes(path, bytes);
  return path;
}

// Distinct values in each channel, so a swapped channel, row or column shows.
unsigned char Blue(int x, int y) { return (unsigned char)(1 + x + 16 * y); }
unsigned char Green(int x, int) { return (unsigned char)(100 + x); }
unsigned char Red(int, int y) { return (unsigned char)(200 + y); }

std::string LoadCapturing(Image& image, const std::string& path, int& result) {
  ConsoleCapture capture = BeginCapture();
  result = LoadImage(image, path.c_str());
  return EndCapture(capture);
}

struct RgbCase {
  const char* name;
  int32_t width;
  int32_t height;  // negative: stored top-down
  int stride;
  uint32_t offset;
};

TEST(LoadImage, RgbLayouts) {
  std::string directory = MakeScratchDirectory();
  const RgbCase cases[] = {
      {"width1_stride4", 1, 2, 4, 54},         {"width3_padding3", 3, 2, 12, 54},
      {"width4_no_padding", 4, 3, 12, 54},     {"width5_stride16", 5, 2, 16, 54},
      {"offset_gap_after_header", 3, 2, 12, 71}, {"negative_height_top_down", 3, -2, 12, 54},
      {"zero_width_rows_of_4", 0, 3, 4, 54},   {"zero_height_header_only", 5, 0, 16, 54},
  };
  for (const RgbCase& c : cases) {
    int rows = c.height < 0 ? -c.height : c.height;
    Bytes file = HeaderBytes({c.width, c.height, 24, 0, c.offset, 40, 0});
    file.resize(c.offset, 0x5A);
    for (int r = 0; r < rows; r++) {
      int y = c.height < 0 ? r : rows - 1 - r;
      Bytes row(c.stride, 0xEE);  // padding is ignored whatever it holds
      for (int x = 0; x < c.width; x++) {
        row[3 * x] = Blue(x, y);
        row[3 * x + 1] = Green(x, y);
        row[3 * x + 2] = Red(x, y);
      }
      file.insert(file.end(), row.begin(), row.end());
    }
    std::string path = WriteFile(directory, c.name, file);
    Image image = {nullptr, -7, -7, 11, 12};
    int result = -1;
    EXPECT_EQ(LoadCapturing(image, path, result), "Chargement du fichier " + path) << c.name;
    EXPECT_EQ(result, 0) << c.name;
    EXPECT_EQ(image.width, c.width) << c.name;
    EXPECT_EQ(image.height, rows) << c.name;
    EXPECT_EQ(image.x0, 11) << c.name;
    EXPECT_EQ(image.y0, 12) << c.name;
    ASSERT_NE(image.pixels, nullptr) << c.name;
    for (int y = 0; y < rows; y++)
      for (int x = 0; x < c.width; x++) {
        const unsigned char* p = image.pixels + (y * c.width + x) * 4;
        EXPECT_EQ(p[0], Blue(x, y)) << c.name << " x=" << x << " y=" << y;
        EXPECT_EQ(p[1], Green(x, y)) << c.name << " x=" << x << " y=" << y;
        EXPECT_EQ(p[2], Red(x, y)) << c.name << " x=" << x << " y=" << y;
        EXPECT_EQ(p[3], 255) << c.name << " x=" << x << " y=" << y;
      }
    ReleasePixels(image);
  }
  RemoveScratchDirectory(directory);
}

TEST(LoadImage, FirstStoredPixelIsBottomLeft) {
  std::string directory = MakeScratchDirectory();
  Bytes file = HeaderBytes({2, 3, 24, 0, 54, 40, 0});
  file.resize(54 + 3 * 8, 0);
  file[54] = 255;  // blue, first pixel of the first stored row
  std::string path = WriteFile(directory, "blue", file);
  Image image = {};
  int result = -1;
  LoadCapturing(image, path, result);
  ASSERT_EQ(result, 0);
  const unsigned char expected[24] = {0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255,
                                      0, 0, 0, 255, 255, 0, 0, 255, 0, 0, 0, 255};
  EXPECT_EQ(Bytes(image.pixels, image.pixels + 24), Bytes(expected, expected + 24));
  ReleasePixels(image);
  RemoveScratchDirectory(directory);
}

struct PaletteCase {
  const char* name;
  uint32_t coloursUsed;
  int entriesInFile;
  uint32_t infoSize;
  unsigned char indices[6];  // 3 x 2 picture, stored rows in file order
};

TEST(LoadImage, PaletteDecodedThroughTable) {
  std::string directory = MakeScratchDirectory();
  const PaletteCase cases[] = {
      {"colours_used_0_means_256", 0, 256, 40, {0, 1, 255, 7, 128, 254}},
      {"colours_used_2_index_beyond_table_is_black", 2, 2, 40, {0, 1, 2, 255, 1, 0}},
      {"colours_used_300_read_as_256", 300, 256, 40, {255, 200, 3, 0, 9, 1}},
      {"table_follows_larger_information_header", 3, 3, 108, {2, 1, 0, 3, 2, 1}},
  };
  for (const PaletteCase& c : cases) {
    uint32_t tableStart = 14 + c.infoSize;
    uint32_t offset = tableStart + 4 * c.entriesInFile;
    Bytes file = HeaderBytes({3, 2, 8, 0, offset, c.infoSize, c.coloursUsed});
    file.resize(tableStart, 0x33);
    for (int i = 0; i < c.entriesInFile; i++) {
      unsigned char entry[4] = {(unsigned char)i, (unsigned char)(255 - i), (unsigned char)(i ^ 0x55), 0x99};
      file.insert(file.end(), entry, entry + 4);
    }
    for (int r = 0; r < 2; r++) {
      file.insert(file.end(), c.indices + 3 * r, c.indices + 3 * r + 3);
      file.push_back(0xFF);  // padding to 4 bytes
    }
    std::string path = WriteFile(directory, c.name, file);
    Image image = {};
    int result = -1;
    std::string expectedOutput = "Chargement du fichier " + path;
    for (int i = 0; i < 100; i++) expectedOutput += "La sauvegarde en N&B n'est pas encore possible\n";
    EXPECT_EQ(LoadCapturing(image, path, result), expectedOutput) << c.name;
    ASSERT_EQ(result, 0) << c.name;
    ASSERT_EQ(image.width, 3);
    ASSERT_EQ(image.height, 2);
    for (int r = 0; r < 2; r++)
      for (int x = 0; x < 3; x++) {
        int index = c.indices[3 * r + x];
        bool inTable = index < c.entriesInFile;
        const unsigned char* p = image.pixels + ((1 - r) * 3 + x) * 4;
        EXPECT_EQ(p[0], inTable ? index : 0) << c.name << " index " << index;
        EXPECT_EQ(p[1], inTable ? 255 - index : 0) << c.name << " index " << index;
        EXPECT_EQ(p[2], inTable ? (index ^ 0x55) : 0) << c.name << " index " << index;
        EXPECT_EQ(p[3], 255) << c.name << " index " << index;
      }
    ReleasePixels(image);
  }
  RemoveScratchDirectory(directory);
}

TEST(LoadImage, UnopenablePathsReturnOneAndLeaveTheRecord) {
  std::string directory = MakeScratchDirectory();
  ASSERT_EQ(mkfifo((directory + "pipe.bmp").c_str(), 0600), 0);  // opening it would block
  const std::string paths[] = {directory, directory + "missing.bmp", directory + "pipe.bmp"};
  for (const std::string& path : paths) {
    unsigned char sentinel = 0;
    Image image = {&sentinel, 5, 6, 7, 8};
    int result = -1;
    EXPECT_EQ(LoadCapturing(image, path, result),
              "Chargement du fichier " + path + "Erreur : impossible d'ouvrir l'image " + path + "\n");
    EXPECT_EQ(result, 1);
    EXPECT_EQ(image.pixels, &sentinel);
    EXPECT_EQ(image.width, 5);
    EXPECT_EQ(image.height, 6);
  }
  RemoveScratchDirectory(directory);
}

// A regular expression matching exactly text, nothing before or after.
std::string ExactPattern(const std::string& text) {
  std::string pattern = "^";
  for (char c : text) {
    if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) pattern += '\\';
    pattern += c;
  }
  return pattern + "$";
}

struct FatalCase {
  const char* name;
  Bytes file;
  const char* message;  // %s stands for the path
  bool paletteLines;
};

Bytes Resized(Bytes bytes, size_t size) {
  bytes.resize(size, 0);
  return bytes;
}

TEST(LoadImageDeathTest, RefusedFilesEndTheRun) {
  std::string directory = MakeScratchDirectory();
  const char* truncated = "Erreur : fichier BMP tronque ou invalide : %s\n";
  const char* compressed = "Fichier BMP compresse: chargement impossible\n";
  const char* unsupported = "Erreur fatale: mode d'image non supporte\n";
  const char* negative = "Erreur : largeur d'image negative : %s\n";
  const FatalCase cases[] = {
      {"header_53_bytes", Resized(HeaderBytes({1, 1, 24, 0, 54, 40, 0}), 53), truncated, false},
      {"last_row_one_byte_short", Resized(HeaderBytes({3, 2, 24, 0, 54, 40, 0}), 77), truncated, false},
      {"offset_beyond_end_empty_picture", HeaderBytes({4, 0, 24, 0, 55, 40, 0}), truncated, false},
      {"offset_pushes_rows_past_end", Resized(HeaderBytes({1, 1, 24, 0, 58, 40, 0}), 58), truncated, false},
      {"top_down_rows_missing", Resized(HeaderBytes({1, -3, 24, 0, 54, 40, 0}), 62), truncated, false},
      {"height_int32_min", Resized(HeaderBytes({0, INT32_MIN, 24, 0, 54, 40, 0}), 118), truncated, false},
      {"forged_huge_sizes", Resized(HeaderBytes({INT32_MAX, INT32_MAX, 24, 0, 54, 40, 0}), 118), truncated, false},
      {"palette_beyond_end", Resized(HeaderBytes({1, 1, 8, 0, 54, 40, 0}), 1074), truncated, true},
      {"palette_rows_missing", Resized(HeaderBytes({4, 2, 8, 0, 62, 40, 2}), 61), truncated, true},
      {"compressed_24", HeaderBytes({1, 1, 24, 1, 54, 40, 0}), compressed, false},
      {"compressed_8_before_palette_lines", HeaderBytes({1, 1, 8, 1, 54, 40, 0}), compressed, false},
      {"compressed_16", HeaderBytes({1, 1, 16, 3, 54, 40, 0}), compressed, false},
      {"compressed_before_negative_width", HeaderBytes({-1, 1, 24, 2, 54, 40, 0}), compressed, false},
      {"negative_width", Resized(HeaderBytes({-1, 1, 24, 0, 54, 40, 0}), 118), negative, false},
      {"negative_width_before_depth", HeaderBytes({-5, 1, 16, 0, 54, 40, 0}), negative, false},
      {"depth_16", Resized(HeaderBytes({1, 1, 16, 0, 54, 40, 0}), 118), unsupported, false},
      {"depth_32", Resized(HeaderBytes({1, 1, 32, 0, 54, 40, 0}), 118), unsupported, false},
      {"depth_1", Resized(HeaderBytes({1, 1, 1, 0, 54, 40, 0}), 118), unsupported, false},
  };
  for (const FatalCase& c : cases) {
    std::string path = WriteFile(directory, c.name, c.file);
    char message[512];
    snprintf(message, sizeof message, c.message, path.c_str());
    std::string expected = "Chargement du fichier " + path;
    if (c.paletteLines)
      for (int i = 0; i < 100; i++) expected += "La sauvegarde en N&B n'est pas encore possible\n";
    expected += std::string(message) + "Erreur fatale, appuyez sur entree.\nFatal error. Press return.\n";
    EXPECT_EXIT(
        {
          freopen("/dev/null", "r", stdin);
          dup2(2, 1);  // the death test matches what the child writes on standard error
          Image image = {};
          LoadImage(image, path.c_str());
        },
        ::testing::KilledBySignal(SIGABRT), ExactPattern(expected))
        << c.name;
  }
  RemoveScratchDirectory(directory);
}

}  // namespace
