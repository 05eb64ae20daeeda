#include <gtest/gtest.h>
#include <sys/stat.h>

#include "console_capture.h"
#include "run_process.h"
#include "test_pictures.h"

namespace {

std::string Le32(uint32_t v) { return {(char)v, (char)(v >> 8), (char)(v >> 16), (char)(v >> 24)}; }

// Header of `size` bytes; the signature and the unread fields hold junk on purpose.
std::string Bmp(int32_t width, int32_t height, uint16_t depth, uint32_t packing, uint32_t offset,
                size_t size = 54, uint32_t colours = 0, uint32_t infoSize = 40) {
  std::string bytes = std::string(10, '\xA5') + Le32(offset) + Le32(infoSize) + Le32(width) + Le32(height);
  bytes += "\xA5\xA5" + Le32(depth).substr(0, 2) + Le32(packing) + std::string(12, '\xA5') + Le32(colours);
  bytes.resize(size, '\0');
  return bytes;
}

template <class Run>
std::string Console(Run run) {
  ConsoleCapture capture = BeginCapture();
  run();
  return EndCapture(capture);
}

class BmpFile : public ::testing::Test {
 protected:
  std::string dir = MakeTempDirectory() + "/";
  std::string path = dir + "in.bmp";
  Image image = {};
  int result = -1;  // of the last Load
  void TearDown() override { RemoveDirectory(dir); }
  std::string Load() { return Console([&] { result = LoadImage(image, path.c_str()); }); }
};
using BmpFileDeathTest = BmpFile;

// Two rows of five pixels, stored in 24 bits or as indices into a table of colours.
TEST_F(BmpFile, ReadsRowsFromTheOffsetInEitherOrderAndThroughTheTable) {
  const struct { int32_t height; uint16_t depth; uint32_t colours, entries, infoSize; } cases[] = {
      {2, 24, 0, 0, 40}, {-2, 24, 0, 0, 40},  // bottom row first; a negative height: top row first
      {2, 8, 0, 256, 108},   // 0 colours means 256; the table follows a larger information header
      {2, 8, 2, 2, 40},      // an index beyond the table is black
      {2, 8, 300, 256, 40},  // more than 256 read as 256
  };
  const unsigned char indices[] = {255, 1, 2, 0, 130, 3, 77, 254, 128, 9};  // as stored
  auto colour = [](int i) { return std::string{(char)i, (char)(255 - i), (char)(i ^ 0x55)}; };
  for (const auto& c : cases) {
    uint32_t offset = 14 + c.infoSize + 4 * c.entries + 17 * (c.depth == 24);  // 24 bits: after a gap
    std::string file = Bmp(5, c.height, c.depth, 0, offset, offset - 4 * c.entries, c.colours, c.infoSize);
    for (uint32_t i = 0; i < c.entries; i++) file += colour(i) + '\x99';
    for (int i = 0; i < 10; i++) {  // rows padded with junk to 16 or 8 bytes
      file += c.depth == 24 ? colour(indices[i]) : std::string(1, indices[i]);
      if (i % 5 == 4) file += c.depth == 24 ? "\xEE" : "\xEE\xEE\xEE";
    }
    WriteWholeFile(path, file);
    std::string want = "Chargement du fichier " + path;
    for (int i = 0; c.depth == 8 && i < 100; i++) want += "La sauvegarde en N&B n'est pas encore possible\n";
    image = {nullptr, -7, -7, 11, 12};
    EXPECT_EQ(Load(), want);
    ASSERT_TRUE(result == 0 && image.width == 5 && image.height == 2 && image.x0 == 11) << c.colours;
    for (int i = 0; i < 10; i++) {
      int index = indices[c.height > 0 ? 5 - i / 5 * 5 + i % 5 : i];  // the stored row order
      std::string pixel = c.depth == 24 || index < (int)c.entries ? colour(index) : std::string(3, '\0');
      EXPECT_EQ(std::string((const char*)image.pixels + 4 * i, 4), pixel + '\xFF') << c.colours << " " << i;
    }
    ReleasePixels(image);
  }
}

TEST_F(BmpFile, UnopenablePathsReturnOneAndLeaveTheRecord) {
  ASSERT_EQ(mkfifo((dir + "pipe.bmp").c_str(), 0600), 0);  // opening it would block
  for (const std::string& at : {dir, dir + "missing.bmp", dir + "pipe.bmp"}) {
    path = at;
    image = {nullptr, 5, 6, 7, 8};
    EXPECT_EQ(Load(), "Chargement du fichier " + at + "Erreur : impossible d'ouvrir l'image " + at + '\n');
    EXPECT_TRUE(result == 1 && image.pixels == nullptr && image.width == 5 && image.height == 6) << at;
  }
}

TEST_F(BmpFileDeathTest, RefusedFilesEndTheRun) {
  const std::string cut = "Erreur : fichier BMP tronque ou invalide : " + path + "\n";
  const std::pair<std::string, std::string> cases[] = {
      {Bmp(4, 0, 24, 0, 55), cut},                       // offset beyond the end
      {Bmp(INT32_MAX, INT32_MAX, 24, 0, 54, 118), cut},  // forged huge size
      {Bmp(1, INT32_MIN, 24, 0, 54, 118), cut},          // a row count with no absolute value
      {Bmp(1, 1, 8, 1, 54), "Fichier BMP compresse: chargement impossible\n"},  // before the palette lines
      {Bmp(-1, 1, 24, 0, 54, 118), "Erreur : largeur d'image negative : " + path + "\n"},
      {Bmp(1, 1, 16, 0, 54, 118), "Erreur fatale: mode d'image non supporte\n"},
  };
  for (const auto& [file, message] : cases) {
    WriteWholeFile(path, file);
    auto load = [&] {  // the console to a file, and end of input at once
      if (!freopen((dir + "console").c_str(), "w", stdout) || !freopen("/dev/null", "r", stdin)) return;
      LoadImage(image, path.c_str());
    };
    EXPECT_EXIT(load(), ::testing::KilledBySignal(SIGABRT), "");
    EXPECT_EQ(ReadWholeFile(dir + "console"), "Chargement du fichier " + path + message + FATAL);
  }
}

// Rows of 3, 9, 12 and 15 colour bytes are padded with zeros to 4, 12, 12 and 16; the weight is not written.
TEST_F(BmpFile, RoundTripsEveryRowPadding) {
  for (int32_t width : {1, 3, 4, 5}) {
    TestPicture picture = MakePicture(width, 3, 0, 0);
    uint32_t state = (uint32_t)width;
    for (unsigned char& byte : picture.bytes) byte = (unsigned char)NextRandom(state);
    Console([&] { SaveBmp(picture.image, path.c_str()); });
    std::string file = ReadWholeFile(path);
    size_t stride = (size_t)(3 * width + 3) / 4 * 4;
    ASSERT_EQ(file.size(), 54 + 3 * stride) << width;
    size_t padding = stride - 3 * width;
    for (size_t row = 0; row < 3; row++)
      EXPECT_EQ(file.substr(54 + row * stride + 3 * width, padding), std::string(padding, '\0')) << width;
    for (size_t i = 3; i < picture.bytes.size(); i += 4) picture.bytes[i] = 255;
    Load();
    ASSERT_TRUE(result == 0 && image.width == width && image.height == 3) << width;
    std::vector<unsigned char> loaded(image.pixels, image.pixels + picture.bytes.size());
    EXPECT_EQ(loaded, picture.bytes) << width;
    ReleasePixels(image);
  }
}

TEST_F(BmpFile, WritesEmptyRowsOfFourBytesAsAPlainCreate) {
  mode_t mask = umask(022);
  std::string output = Console([&] { SaveBmp(Image{nullptr, 0, 2, 0, 0}, path.c_str()); });
  umask(mask);
  EXPECT_EQ(output, "Sauvegarde d'une image " + path + " FIN\n");
  std::string head = "BM" + Le32(62) + Le32(0) + Le32(54) + Le32(40) + Le32(0) + Le32(2) + Le32(1 | 24 << 16);
  EXPECT_EQ(ReadWholeFile(path), head + Le32(0) + Le32(0) + Le32(2840) + Le32(2840) + std::string(16, '\0'));
  struct stat status;
  EXPECT_TRUE(stat(path.c_str(), &status) == 0 && (status.st_mode & 0777) == 0644);
}

}  // namespace
