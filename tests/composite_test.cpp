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

std::string Card(const char* keyword, int value) {  // the value ends in column 30
  char card[81];
  snprintf(card, sizeof card, "%-8s=%21d%50s", keyword, value, "");
  return card;
}

class CompositeTest : public ::testing::Test {
 protected:
  std::string dir = MakeTempDirectory() + "/";
  std::string name = dir + "sum.bmp";
  void TearDown() override {
    delete[] Accumulator;
    Accumulator = nullptr;
    ImageTable.CompositeName = nullptr;
    RemoveDirectory(dir);
  }
  void Start(int32_t width, int32_t height, int32_t x0, int32_t y0, int32_t images) {  // no failure yet
    Reference = Image{nullptr, width, height, x0, y0};
    delete[] Accumulator;
    CreateAccumulator();
    ImageTable.ImageCount = images;
    ImageTable.CompositeName = name.data();
    WriteFailureCount = 0;
  }
};

TEST_F(CompositeTest, PlanesOfScaledSumsAndTheTruncatedMeanNamedUpToTheFirstDot) {
  std::string base = dir;
  for (int i = 0; i < 6; i++) base += std::string(100, (char)('a' + i)) + "/";  // over 512 characters
  std::filesystem::create_directories(base);
  name = base + "s.final.bmp";
  // height; images listed; the scale they give; red, green, blue values; mean blue, green, red
  const int cases[][9] = {{32, 3, 3, 301, 510, 14, 4, 170, 100}, {31, 200, 127, 191, 323, 8, 0, 2, 1}, {31}};
  for (const auto& c : cases) {
    Start(45, c[0], 0, 0, c[1]);
    const uint32_t sums[] = {14, 510, 301};  // blue, green, red of the bottom-left pixel, written first
    std::copy(sums, sums + 3, Accumulator + 3 * 45 * (c[0] - 1));
    ConsoleCapture capture = BeginCapture();
    SaveComposite();
    EXPECT_EQ(EndCapture(capture),
        "Sauvegarde de l'image compositee : " + name + "\nSauvegarde d'une image " + base + "s.bmp FIN\n");
    EXPECT_TRUE(Accumulator == nullptr && Composite.pixels == nullptr);
    std::string head = "SIMPLE  =                    T" + std::string(50, ' ') + Card("BITPIX", 16);
    head += Card("NAXIS", 2) + Card("NAXIS1", 45) + Card("NAXIS2", c[0]) + Card("MIPS-HI", 256 * c[2]);
    head += Card("MIPS-LO", 0) + "END";
    head.resize(2880, ' ');
    for (int plane = 0; plane < 3; plane++) {  // 45 x 32 values end on a block, 45 x 31 do not
      std::string expected = head + (char)(c[3 + plane] >> 8) + (char)c[3 + plane];
      expected.resize(5760, '\0');
      EXPECT_EQ(ReadWholeFile(base + "s" + "RVB"[plane] + ".fit"), expected) << "RVB"[plane] << " " << c[1];
    }
    std::string mean = {(char)c[6], (char)c[7], (char)c[8]};  // rows of 135 bytes padded to 136
    EXPECT_EQ(ReadWholeFile(base + "s.bmp").substr(54), mean + std::string(136 * c[0] - 3, '\0')) << c[1];
  }
}

TEST_F(CompositeTest, FitsverifyReportsNoError) {
  if (system("command -v fitsverify > /dev/null 2>&1") != 0)
    GTEST_SKIP() << "fitsverify is not installed (Debian package fitsverify); FITS validation skipped";
  Start(100, 100, 0, 0, 200);
  SaveFitsPlane((dir + "plane.fit").c_str(), 1);
  int status = system(("fitsverify " + dir + "plane.fit > " + dir + "report 2>&1").c_str());
  std::string report = ReadWholeFile(dir + "report");
  EXPECT_TRUE(status == 0 && report.find(" and 0 error(s). ****") != std::string::npos) << report;
}

TEST_F(CompositeTest, WeightedPixelsPairThroughTheReferencePoints) {
  // frame point x; image width, height, point: cut left and top, right and bottom, offset beyond 32 bits
  const int32_t cases[][5] = {{3, 6, 4, 1, 0}, {3, 10, 3, 5, 3}, {INT32_MIN + 1, 6, 4, INT32_MAX, 2}};
  for (const auto& c : cases) {
    Start(6, 4, c[0], 2, 1);
    TestPicture tall = MakePicture(c[1], 3 * c[2], 0, 0);  // the image between two opaque white copies
    Fill(tall, 255, 255, 255, 255);
    for (int i = 0; i < c[1] * c[2]; i++)
      SetPixel(tall, i % c[1], c[2] + i / c[1], 10 + 10 * (i % c[1]), 10 + 10 * (i / c[1]), 200, 128);
    AccumulateComposite(Image{&tall.bytes[4 * c[1] * c[2]], c[1], c[2], c[3], c[4]});
    for (int i = 0; i < 24; i++) {
      int64_t sx = i % 6 + (int64_t)c[3] - c[0];  // frame pixel (i % 6, i / 6) meets image pixel (sx, sy)
      int64_t sy = i / 6 + c[4] - 2;
      int64_t in = sx >= 0 && sx < c[1] && sy >= 0 && sy < c[2];  // weighted by 128 / 255, truncated
      std::vector<int64_t> sum = {in * (10 + 10 * sx) * 128 / 255, in * (10 + 10 * sy) * 128 / 255, in * 100};
      EXPECT_EQ(std::vector<int64_t>(Accumulator + 3 * i, Accumulator + 3 * i + 3), sum) << c[3] << " " << i;
    }
  }
}

TEST_F(CompositeTest, FullDiskKeepsTheOldMeanAndLeavesNoTemporary) {
  Start(1, 1, 0, 0, 1);
  WriteWholeFile(name, "old");
  OutputFailAfterBytes = 50;  // within every header
  ConsoleCapture capture = BeginCapture();
  SaveComposite();
  std::string output = EndCapture(capture);
  OutputFailAfterBytes = -1;
  std::string failure = "\nErreur : impossible d'ecrire le fichier " + name + " (No space left on device)\n";
  EXPECT_EQ(output.substr(output.find("Sauvegarde d'une image")), "Sauvegarde d'une image " + name + failure);
  EXPECT_EQ(WriteFailureCount, 4);  // the three planes as well
  EXPECT_EQ(ReadWholeFile(name), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);
}

}  // namespace
