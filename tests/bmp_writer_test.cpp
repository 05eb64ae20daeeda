#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console_capture.h"
#include "image/image.h"
#include "image/output_file.h"
#include "scratch_directory.h"
#include "test_pictures.h"

namespace {

uint32_t Le32(const Bytes& bytes, size_t at) {
  return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | (uint32_t)bytes[at + 3] << 24;
}

TestPicture DistinctPicture(int32_t width, int32_t height) {
  TestPicture picture = MakePicture(width, height, 0, 0);
  for (int y = 0; y < height; y++)
    for (int x = 0; x < width; x++)
      SetPixel(picture, x, y, (unsigned char)(1 + x + 16 * y), (unsigned char)(100 + x),
               (unsigned char)(200 + y), (unsigned char)(3 * x + y));  // weights are not kept
  return picture;
}

std::string SaveCapturing(const Image& image, const std::string& path) {
  ConsoleCapture capture = BeginCapture();
  SaveBmp(image, path.c_str());
  return EndCapture(capture);
}

struct LayoutCase {
  const char* name;
  int32_t width;
  int32_t height;
  size_t stride;
  uint32_t fileSize;
};

TEST(SaveBmp, LayoutsAndRoundTrip) {
  const LayoutCase cases[] = {
      {"width1_rows_of_4", 1, 2, 4, 62},          {"width3_three_zero_bytes", 3, 2, 12, 78},
      {"width4_no_padding", 4, 3, 12, 90},        {"width5_rows_of_16", 5, 2, 16, 86},
      {"width0_rows_of_4_zero_bytes", 0, 2, 4, 62}, {"height0_header_alone", 3, 0, 12, 54},
  };
  std::string directory = MakeScratchDirectory();
  for (const LayoutCase& c : cases) {
    TestPicture picture = DistinctPicture(c.width, c.height);
    std::string path = directory + c.name + ".bmp";
    EXPECT_EQ(SaveCapturing(picture.image, path), "Sauvegarde d'une image " + path + " FIN\n");
    Bytes file = ReadFileBytes(path);
    ASSERT_EQ(file.size(), c.fileSize) << c.name;
    const uint32_t fields[][3] = {{2, c.fileSize, 4}, {6, 0, 4},     {10, 54, 4},   {14, 40, 4},
                                  {18, (uint32_t)c.width, 4}, {22, (uint32_t)c.height, 4},
                                  {26, 1 | 24 << 16, 4}, {30, 0, 4}, {34, 0, 4},    {38, 2840, 4},
                                  {42, 2840, 4},  {46, 0, 4},     {50, 0, 4}};
    EXPECT_EQ(file[0], 'B');
    EXPECT_EQ(file[1], 'M');
    for (const auto& field : fields) EXPECT_EQ(Le32(file, field[0]), field[1]) << c.name << " at " << field[0];
    for (int r = 0; r < c.height; r++) {
      const unsigned char* row = file.data() + 54 + r * c.stride;
      const unsigned char* memory = picture.bytes.data() + (size_t)(c.height - 1 - r) * c.width * 4;
      for (int x = 0; x < c.width; x++)
        EXPECT_EQ(Bytes(row + 3 * x, row + 3 * x + 3), Bytes(memory + 4 * x, memory + 4 * x + 3))
            << c.name << " stored row " << r << " x " << x;
      for (size_t i = 3 * c.width; i < c.stride; i++) EXPECT_EQ(row[i], 0) << c.name << " padding";
    }
    Image loaded = {};
    ConsoleCapture capture = BeginCapture();
    int result = LoadImage(loaded, path.c_str());
    EndCapture(capture);
    ASSERT_EQ(result, 0) << c.name;
    EXPECT_EQ(loaded.width, c.width);
    EXPECT_EQ(loaded.height, c.height);
    for (size_t i = 0; i < picture.bytes.size(); i++)
      EXPECT_EQ(loaded.pixels[i], i % 4 == 3 ? 255 : picture.bytes[i]) << c.name << " byte " << i;
    ReleasePixels(loaded);
  }
  RemoveScratchDirectory(directory);
}

TEST(SaveBmp, ReplacesAnExistingLongerFile) {
  std::string directory = MakeScratchDirectory();
  std::string path = directory + "old.bmp";
  WriteFileBytes(path, Bytes(500, 0x77));
  TestPicture picture = DistinctPicture(1, 2);
  SaveCapturing(picture.image, path);
  Bytes file = ReadFileBytes(path);
  EXPECT_EQ(file.size(), 62u);
  EXPECT_EQ(Le32(file, 18), 1u);
  EXPECT_EQ(ListDirectory(directory), std::vector<std::string>{"old.bmp"});
  RemoveScratchDirectory(directory);
}

TEST(SaveBmp, MissingDirectoryIsReportedAndCounted) {
  std::string path = ::testing::TempDir() + "kelvarion_no_such_directory/result.bmp";
  TestPicture picture = DistinctPicture(2, 2);
  int failures = WriteFailureCount;
  EXPECT_EQ(SaveCapturing(picture.image, path), "Sauvegarde d'une image " + path + "\nErreur : impossible d'ecrire le fichier " +
                                                    path + " (No such file or directory)\n");
  EXPECT_EQ(WriteFailureCount, failures + 1);
}

TEST(SaveBmp, FailedWriteKeepsTheOldFileAndLeavesNoTemporary) {
  const int64_t failPoints[] = {0, 1, 53, 54, 66, 89};  // the 4 x 3 file is 90 bytes
  std::string directory = MakeScratchDirectory();
  std::string path = directory + "result.bmp";
  const Bytes old = {'o', 'l', 'd', 0, 1, 2};
  TestPicture picture = DistinctPicture(4, 3);
  for (int64_t failPoint : failPoints) {
    WriteFileBytes(path, old);
    int failures = WriteFailureCount;
    OutputFailAfterBytes = failPoint;
    std::string output = SaveCapturing(picture.image, path);
    OutputFailAfterBytes = -1;
    EXPECT_EQ(output, "Sauvegarde d'une image " + path + "\nErreur : impossible d'ecrire le fichier " + path +
                          " (No space left on device)\n")
        << failPoint;
    EXPECT_EQ(WriteFailureCount, failures + 1) << failPoint;
    EXPECT_EQ(ReadFileBytes(path), old) << failPoint;
    EXPECT_EQ(ListDirectory(directory), std::vector<std::string>{"result.bmp"}) << failPoint;
  }
  OutputFailAfterBytes = 90;  // exactly the file's length still fits
  SaveCapturing(picture.image, path);
  OutputFailAfterBytes = -1;
  EXPECT_EQ(ReadFileBytes(path).size(), 90u);
  RemoveScratchDirectory(directory);
}

}  // namespace
