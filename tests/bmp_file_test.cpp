#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "console_capture.h"
#include "image/image.h"
#include "image/output_file.h"
#include "run_process.h"
#include "test_pictures.h"

namespace {

std::string Le32(uint32_t value) { return {(char)value, (char)(value >> 8), (char)(value >> 16), (char)(value >> 24)}; }

// Header of `size` bytes; the signature and the unread fields hold junk on purpose.
std::string Bmp(int32_t width, int32_t height, uint16_t depth, uint32_t compression, uint32_t offset,
                size_t size = 54, uint32_t colours = 0, uint32_t infoSize = 40) {
  std::string bytes = std::string(10, '\xA5') + Le32(offset) + Le32(infoSize) + Le32(width) + Le32(height) + "\xA5\xA5" +
                      Le32(depth).substr(0, 2) + Le32(compression) + std::string(12, '\xA5') + Le32(colours) + "\xA5\xA5\xA5\xA5";
  bytes.resize(size, '\0');
  return bytes;
}

const char* const kPaletteLine = "La sauvegarde en N&B n'est pas encore possible\n";

template <class Run>
std::string Console(Run run) {
  ConsoleCapture capture = BeginCapture();
  run();
  return EndCapture(capture);
}

class BmpFile : public ::testing::Test {
 protected:
  std::string dir = MakeTempDirectory() + "/", path = dir + "in.bmp";
  int result = -1;  // of the last LoadImage
  void TearDown() override { RemoveDirectory(dir); }
  std::string Load(Image& image, const std::string& bytes = "") {
    if (!bytes.empty()) WriteWholeFile(path, bytes);
    return Console([&] { result = LoadImage(image, path.c_str()); });
  }
  std::string Save(const Image& image) { return Console([&] { SaveBmp(image, path.c_str()); }); }
  long Entries() { return std::distance(std::filesystem::directory_iterator(dir), {}); }
};
using BmpFileDeathTest = BmpFile;

TEST_F(BmpFile, ReadsRowsPaddingOffsetAndOrder) {
  const int32_t cases[][4] = {{1, 2, 54, 4}, {3, 2, 71, 12}, {5, 2, 54, 16}, {3, -2, 54, 12}};  // w, h, offset, stride
  for (const auto& c : cases) {
    int32_t width = c[0], rows = std::abs(c[1]);
    std::string file = Bmp(width, c[1], 24, 0, c[2], c[2]);
    for (int r = 0; r < rows; r++) {  // stored row r; the padding holds junk
      for (int x = 0; x < width; x++) file += {(char)(1 + x + 16 * r), (char)(100 + x), (char)(200 + r)};
      file.resize(file.size() + c[3] - 3 * width, '\xEE');
    }
    Image image = {nullptr, -7, -7, 11, 12};
    EXPECT_EQ(Load(image, file), "Chargement du fichier " + path);
    ASSERT_EQ(std::vector<int>({result, image.width, image.height, image.x0}), std::vector<int>({0, width, rows, 11}));
    for (int y = 0; y < rows; y++)
      for (int x = 0; x < width; x++) {
        int r = c[1] > 0 ? rows - 1 - y : y;  // the first stored row is the bottom one unless the height is negative
        const unsigned char* p = image.pixels + 4 * (y * width + x);
        EXPECT_EQ(std::vector<int>(p, p + 4), std::vector<int>({1 + x + 16 * r, 100 + x, 200 + r, 255}))
            << width << "x" << c[1] << " offset " << c[2] << " at " << x << "," << y;
      }
    ReleasePixels(image);
  }
}

TEST_F(BmpFile, PaletteDecodedThroughTheTable) {
  const struct { uint32_t colours; int entries; uint32_t infoSize; unsigned char indices[6]; } cases[] = {
      {0, 256, 40, {0, 1, 255, 7, 128, 254}},  // 0 means 256
      {2, 2, 40, {0, 1, 2, 255, 1, 0}},        // an index beyond the table is black
      {300, 256, 40, {255, 200, 3, 0, 9, 1}},  // more than 256 read as 256
      {3, 3, 108, {2, 1, 0, 3, 2, 1}},         // the table follows a larger information header
  };
  for (const auto& c : cases) {
    std::string file = Bmp(3, 2, 8, 0, 14 + c.infoSize + 4 * c.entries, 14 + c.infoSize, c.colours, c.infoSize);
    for (int i = 0; i < c.entries; i++) file += {(char)i, (char)(255 - i), (char)(i ^ 0x55), '\x99'};
    for (int r = 0; r < 2; r++) file += std::string((const char*)c.indices + 3 * r, 3) + '\xFF';
    std::string expected = "Chargement du fichier " + path;
    for (int i = 0; i < 100; i++) expected += kPaletteLine;
    Image image = {};
    EXPECT_EQ(Load(image, file), expected);
    ASSERT_TRUE(result == 0 && image.width == 3 && image.height == 2) << c.colours;
    for (int i = 0; i < 6; i++) {
      int index = c.indices[i], in = index < c.entries;
      const unsigned char* p = image.pixels + 4 * ((1 - i / 3) * 3 + i % 3);  // stored bottom row first
      EXPECT_EQ(std::vector<int>(p, p + 4), std::vector<int>({in * index, in * (255 - index), in * (index ^ 0x55), 255}))
          << "colours used " << c.colours << ", index " << index;
    }
    ReleasePixels(image);
  }
}

TEST_F(BmpFile, UnopenablePathsReturnOneAndLeaveTheRecord) {
  ASSERT_EQ(mkfifo((dir + "pipe.bmp").c_str(), 0600), 0);  // opening it would block
  for (const std::string& name : {dir, dir + "missing.bmp", dir + "pipe.bmp"}) {
    unsigned char sentinel = 0;
    Image image = {&sentinel, 5, 6, 7, 8};
    path = name;
    EXPECT_EQ(Load(image), "Chargement du fichier " + name + "Erreur : impossible d'ouvrir l'image " + name + "\n");
    EXPECT_TRUE(result == 1 && image.pixels == &sentinel && image.width == 5 && image.height == 6) << name;
  }
}

TEST_F(BmpFileDeathTest, RefusedFilesEndTheRun) {
  const char *cut = "Erreur : fichier BMP tronque ou invalide : %s\n", *packed = "Fichier BMP compresse: chargement impossible\n";
  const struct { std::string file; const char* message; bool paletteLines = false; } cases[] = {
      {Bmp(1, 1, 24, 0, 54, 53), cut},                  // header cut short
      {Bmp(4, 0, 24, 0, 55), cut},                       // offset beyond the end
      {Bmp(3, 2, 24, 0, 54, 77), cut},                   // last row one byte short
      {Bmp(1, -3, 24, 0, 54, 62), cut},                  // top-down rows missing
      {Bmp(INT32_MAX, INT32_MAX, 24, 0, 54, 118), cut},  // forged huge size
      {Bmp(4, 2, 8, 0, 62, 61, 2), cut, true},           // palette rows missing
      {Bmp(1, 1, 24, 1, 54), packed}, {Bmp(1, 1, 8, 1, 54), packed},  // the 8-bit one before the palette lines
      {Bmp(-1, 1, 24, 0, 54, 118), "Erreur : largeur d'image negative : %s\n"},
      {Bmp(1, 1, 16, 0, 54, 118), "Erreur fatale: mode d'image non supporte\n"},
  };
  for (const auto& c : cases) {
    WriteWholeFile(path, c.file);
    std::string expected = "Chargement du fichier " + path, pattern = "^";
    for (int i = 0; i < 100 * c.paletteLines; i++) expected += kPaletteLine;
    char message[512];
    snprintf(message, sizeof message, c.message, path.c_str());
    expected += std::string(message) + "Erreur fatale, appuyez sur entree.\nFatal error. Press return.\n";
    for (char ch : expected) pattern.append(std::string("\\^$.|?*+()[]{}").find(ch) != std::string::npos, '\\') += ch;
    // The child's console goes to standard error, where the death test reads it.
    EXPECT_EXIT({ freopen("/dev/null", "r", stdin); dup2(2, 1); Image image = {}; LoadImage(image, path.c_str()); },
                ::testing::KilledBySignal(SIGABRT), pattern + "$") << expected;
  }
}

TEST_F(BmpFile, WritesLayoutsThatReadBack) {
  const uint32_t cases[][4] = {{1, 2, 4, 62}, {3, 2, 12, 78}, {4, 3, 12, 90}, {5, 2, 16, 86}, {0, 2, 4, 62}, {3, 0, 12, 54}};
  mode_t mask = umask(022);
  for (const auto& c : cases) {  // width, height, stride, file size; each replaces the previous file
    int32_t w = c[0], h = c[1];
    TestPicture picture = MakePicture(w, h, 0, 0);
    for (int i = 0; i < w * h; i++) SetPixel(picture, i % w, i / w, 1 + i % w + 16 * (i / w), 100 + i % w, 200 + i / w, i);
    std::string expected = "BM" + Le32(c[3]) + Le32(0) + Le32(54) + Le32(40) + Le32(w) + Le32(h) + Le32(1 | 24 << 16) +
                           Le32(0) + Le32(0) + Le32(2840) + Le32(2840) + Le32(0) + Le32(0);
    for (int r = h - 1; r >= 0; r--) {  // bottom row first, blue green red, zero padding
      for (int x = 0; x < w; x++) expected.append((const char*)&picture.bytes[4 * (r * w + x)], 3);
      expected.resize(expected.size() + c[2] - 3 * w, '\0');
    }
    EXPECT_EQ(Save(picture.image), "Sauvegarde d'une image " + path + " FIN\n");
    EXPECT_EQ(ReadWholeFile(path), expected) << w << "x" << h;
    EXPECT_EQ(Entries(), 1);
    struct stat status;
    EXPECT_TRUE(stat(path.c_str(), &status) == 0 && (status.st_mode & 0777) == 0644);  // as a plain create would give
    Image loaded = {};
    Load(loaded);
    ASSERT_EQ(std::vector<int>({result, loaded.width, loaded.height}), std::vector<int>({0, w, h}));
    for (size_t i = 0; i < picture.bytes.size(); i++) EXPECT_EQ(loaded.pixels[i], i % 4 == 3 ? 255 : picture.bytes[i]);
    ReleasePixels(loaded);
  }
  umask(mask);
}

TEST_F(BmpFile, FailedWriteKeepsTheOldFileAndLeavesNoTemporary) {
  TestPicture picture = MakePicture(4, 3, 0, 0);  // a 90-byte file
  const std::string old("old\0\1\2", 6);
  WriteFailureCount = 0;
  for (int64_t failPoint : {0, 1, 53, 54, 89}) {
    WriteWholeFile(path, old);
    OutputFailAfterBytes = failPoint;
    std::string output = Save(picture.image);
    OutputFailAfterBytes = -1;
    EXPECT_EQ(output, "Sauvegarde d'une image " + path + "\nErreur : impossible d'ecrire le fichier " + path +
                          " (No space left on device)\n");
    EXPECT_EQ(ReadWholeFile(path), old) << failPoint;
    EXPECT_EQ(Entries(), 1) << failPoint;
  }
  path = dir + "missing/out.bmp";
  EXPECT_EQ(Save(picture.image), "Sauvegarde d'une image " + path + "\nErreur : impossible d'ecrire le fichier " + path +
                                     " (No such file or directory)\n");
  EXPECT_EQ(WriteFailureCount, 6);
}

}  // namespace
