#include <gtest/gtest.h>

#include <filesystem>

#include "composite/composite.h"
#include "console_capture.h"
#include "image/fits_writer.h"
#include "image/output_file.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "run_process.h"
#include "test_pictures.h"

namespace {

namespace fs = std::filesystem;

// Keyword in columns 1-8, "=" in 9, value ending in column 30, blanks to 80.
std::string Card(std::string keyword, const std::string& value) {
  keyword.resize(8, ' ');
  return keyword + "=" + std::string(21 - value.size(), ' ') + value + std::string(50, ' ');
}

// Each test runs in its own empty directory; Start gives a fresh sum and failure count.
class CompositeTest : public ::testing::Test {
 protected:
  std::string saved = fs::current_path(), dir = MakeTempDirectory(), name;
  void SetUp() override { fs::current_path(dir); }
  void TearDown() override {
    delete[] Accumulator;
    Accumulator = nullptr;
    ImageTable.CompositeName = nullptr;
    fs::current_path(saved);
    RemoveDirectory(dir);
  }
  void Start(int32_t width, int32_t height, int32_t x0, int32_t y0, int32_t images, const std::string& as = "sum.bmp") {
    Reference = Image{nullptr, width, height, x0, y0};
    delete[] Accumulator;
    CreateAccumulator();
    ImageTable.ImageCount = images;
    WriteFailureCount = 0;
    ImageTable.CompositeName = (name = as).data();
  }
  std::string Save() { ConsoleCapture capture = BeginCapture(); SaveComposite(); return EndCapture(capture); }
};

TEST_F(CompositeTest, FitsPlaneHeaderValuesAndFill) {
  ASSERT_EQ(Card("NAXIS1", "640").substr(0, 31), "NAXIS1  =                  640 ");
  const uint32_t cases[][8] = {  // width, height, images, sum, MIPS-HI, first value's bytes, file size
      {640, 2, 10, 300, 2560, 0x01, 0x2C, 5760}, {100, 100, 10, 2550, 2560, 0x09, 0xF6, 23040},
      {48, 30, 127, 32385, 32512, 0x7E, 0x81, 5760}, {1, 1, 128, 32640, 32512, 0x7E, 0x81, 5760},
      {1, 1, 200, 51000, 32512, 0x7E, 0x81, 5760}, {1, 1, 200, 2, 32512, 0x00, 0x01, 5760},
      {1, 1, 0, 500, 0, 0x00, 0x00, 5760}};
  for (const auto& c : cases) {
    Start(c[0], c[1], 0, 0, c[2]);
    uint32_t* first = Accumulator + 3 * c[0] * (c[1] - 1);  // the bottom row's first pixel is written first
    first[0] = 7, first[1] = c[3], first[2] = 9;
    SaveFitsPlane("plane.fit", 1);
    std::string expected = Card("SIMPLE", "T") + Card("BITPIX", "16") + Card("NAXIS", "2") + Card("NAXIS1", std::to_string(c[0])) +
                           Card("NAXIS2", std::to_string(c[1])) + Card("MIPS-HI", std::to_string(c[4])) + Card("MIPS-LO", "0") + "END";
    expected.resize(2880, ' ');
    expected += {(char)c[5], (char)c[6]};
    expected.resize(c[7], '\0');
    EXPECT_EQ(ReadWholeFile("plane.fit"), expected) << c[0] << "x" << c[1] << ", " << c[2] << " images, sum " << c[3];
  }
}

TEST_F(CompositeTest, FitsverifyReportsNoError) {
  if (system("command -v fitsverify > /dev/null 2>&1") != 0)
    GTEST_SKIP() << "fitsverify is not installed (Debian package fitsverify); FITS validation skipped";
  for (const auto& p : {std::vector<int32_t>{100, 100, 200}, {48, 30, 10}, {1, 1, 1}}) {  // width, height, images
    Start(p[0], p[1], 0, 0, p[2]);
    for (uint32_t i = 0, state = 12345; i < 3u * p[0] * p[1]; i++) Accumulator[i] = NextRandom(state) % (255u * p[2] + 1);
    SaveFitsPlane("plane.fit", 1);
    int status = system("fitsverify plane.fit > verify.txt 2>&1");
    EXPECT_TRUE(status == 0 && ReadWholeFile("verify.txt").find(" and 0 error(s). ****") != std::string::npos) << ReadWholeFile("verify.txt");
  }
}

TEST_F(CompositeTest, WeightScalesTheColourWithTruncation) {
  for (const auto& c : {std::vector<int>{255, 200, 200}, {128, 255, 128}, {127, 200, 99}, {0, 255, 0}}) {
    Start(1, 1, 0, 0, 1);  // weight, colour, added
    TestPicture image = MakePicture(1, 1, 0, 0);
    Fill(image, c[1], c[1], c[1], c[0]);
    AccumulateComposite(image.image);
    EXPECT_EQ(std::vector<uint32_t>(Accumulator, Accumulator + 3), std::vector<uint32_t>(3, c[2])) << c[0] << " x " << c[1];
  }
}

TEST_F(CompositeTest, PairsThroughTheReferencePoints) {
  const int64_t cases[][6] = {  // frame point x; image width, height, point x, y; frame pixels covered
      {3, 6, 4, 3, 2, 24}, {3, 6, 4, 8, 2, 4},  {3, 6, 4, 2, 3, 15}, {3, 3, 2, 0, 0, 6},
      {3, 10, 8, 5, 4, 24}, {3, 6, 4, 9, 2, 0}, {3, 6, 4, 3, -2, 0}, {INT32_MIN + 1, 6, 4, INT32_MAX, 2, 0}};
  for (const auto& c : cases) {
    Start(6, 4, c[0], 2, 1);
    TestPicture image = MakePicture(c[1], c[2], c[3], c[4]);
    for (int32_t i = 0; i < c[1] * c[2]; i++) SetPixel(image, i % c[1], i / c[1], 1 + i % c[1], 1 + i / c[1], 7, 255);
    AccumulateComposite(image.image);
    int covered = 0;
    for (int64_t i = 0; i < 24; i++) {
      int64_t sx = i % 6 + c[3] - c[0], sy = i / 6 + c[4] - 2;  // frame pixel (i % 6, i / 6) meets image pixel (sx, sy)
      std::vector<int64_t> expected(3, 0);
      if (sx >= 0 && sx < c[1] && sy >= 0 && sy < c[2]) expected = {1 + sx, 1 + sy, 7};
      covered += Accumulator[3 * i + 2] != 0;
      EXPECT_EQ(std::vector<int64_t>(Accumulator + 3 * i, Accumulator + 3 * i + 3), expected) << c[3] << "," << c[4] << " at " << i;
    }
    EXPECT_EQ(covered, c[5]) << c[3] << "," << c[4];
  }
}

TEST_F(CompositeTest, MeanDividesByTheImagesListed) {
  for (const auto& c : {std::vector<int>{2, 7, 255, 150}, {3, 4, 170, 100}, {0, 0, 0, 0}}) {  // listed; mean b, g, r
    Start(2, 1, 1, 0, c[0]);
    for (int red : {100, 201}) {  // a third listed image may be missing
      TestPicture image = MakePicture(2, 1, 1, 0);
      SetPixel(image, 0, 0, 7, 255, red, 255);  // the second pixel stays empty
      AccumulateComposite(image.image);
    }
    Save();
    EXPECT_EQ(ReadWholeFile("sum.bmp").substr(54), std::string({(char)c[1], (char)c[2], (char)c[3], 0, 0, 0, 0, 0})) << c[0];
    for (const auto& [file, sum] : {std::pair{"sumR.fit", 301}, {"sumV.fit", 510}, {"sumB.fit", 14}})  // raw sums
      EXPECT_EQ(ReadWholeFile(file).substr(2880, 2), std::string({(char)(sum * !!c[0] >> 8), (char)(sum * !!c[0])})) << file;
    EXPECT_TRUE(Accumulator == nullptr && Composite.pixels == nullptr);
  }
}

TEST_F(CompositeTest, BaseNameIsCutBeforeTheFirstDot) {
  std::string deep;
  for (int i = 0; i < 6; i++) deep += std::string(100, (char)('a' + i)) + "/";  // over 512 characters in all
  fs::create_directories(deep);
  const std::string cases[][2] = {{"sum.bmp", "sum"}, {"a.b.c", "a"}, {"./out.bmp", ""}, {deep + "s.final.bmp", deep + "s"}};
  for (const auto& c : cases) {
    Start(3, 2, 1, 1, 1, c[0]);
    EXPECT_EQ(Save(), "Sauvegarde de l'image compositee : " + c[0] + "\nSauvegarde d'une image " + c[1] + ".bmp FIN\n");
    for (const char* suffix : {"R.fit", "V.fit", "B.fit", ".bmp"}) EXPECT_TRUE(FileExists(c[1] + suffix)) << c[1] + suffix;
  }
}

TEST_F(CompositeTest, FileThatCannotBeWrittenLeavesTheOthers) {
  const std::string files[] = {"sumR.fit", "sumV.fit", "sumB.fit", "sum.bmp"}, bmp = "Sauvegarde d'une image sum.bmp";
  for (const std::string& blocked : files) {
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    fs::create_directory(blocked);  // a directory stands where the file should go
    Start(48, 30, 24, 15, 2);
    std::string failure = "Erreur : impossible d'ecrire le fichier " + blocked + " (Is a directory)\n";
    EXPECT_EQ(Save(), "Sauvegarde de l'image compositee : sum.bmp\n" +
                          (blocked == "sum.bmp" ? bmp + "\n" + failure : failure + bmp + " FIN\n"));
    EXPECT_EQ(WriteFailureCount, 1) << blocked;
    EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 4) << blocked;  // no temporary left behind
    for (const std::string& file : files)  // the blocked one still a directory, the others whole
      EXPECT_EQ(ReadWholeFile(file).size(), file == blocked ? 0u : file == "sum.bmp" ? 4374u : 5760u) << blocked << " " << file;
  }
}

TEST_F(CompositeTest, FullDiskInTheFitsHeadersStillWritesTheMean) {
  Start(1, 1, 0, 0, 1);
  OutputFailAfterBytes = 100;  // the planes stop inside their headers; the 58-byte mean fits
  Save();
  OutputFailAfterBytes = -1;
  EXPECT_EQ(WriteFailureCount, 3);
  EXPECT_TRUE(FileExists("sum.bmp") && std::distance(fs::directory_iterator("."), {}) == 1);  // and no temporary
}

}  // namespace
