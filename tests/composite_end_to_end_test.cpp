// The composite of generated sequences by the kelvarion process: its sharpness and its FITS sums.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "sample_sequence.h"

namespace {

const int W = 240, H = 180;
const size_t SIZE = W * H * 3;

// compositeB/V/R.fit, W x H planes of 16-bit big-endian integers stored bottom row first, laid out as the
// colour bytes of a picture; none when a plane is short or lacks a header card.
std::vector<int> ReadFitsSums(const Sample& s) {
  std::vector<int> sums(SIZE, 0);
  for (int c = 0; c < 3; c++) {
    std::string bytes = ReadWholeFile(s.File(std::string("composite") + "BVR"[c] + ".fit"));
    for (const char* card : {"BITPIX  =                   16", "NAXIS1  =                  240",
                             "NAXIS2  =                  180"})
      if (bytes.find(card) >= 2880 || bytes.size() < 2880 + 2 * W * H) return {};
    for (int q = 0; q < W * H; q++)
      sums[((H - 1 - q / W) * W + q % W) * 3 + c] = (int16_t)((uint8_t)bytes[2880 + 2 * q] << 8 |
                                                             (uint8_t)bytes[2881 + 2 * q]);
  }
  return sums;
}

TEST(CompositeEndToEnd, AlignedCompositeIsSharperThanTheUnalignedMean) {
  Sample s;
  ASSERT_TRUE(s.Generate("--count 6 --seed 3 --scene planet --max-angle 0 --max-shift 4"));
  ASSERT_EQ(s.Run(), 0) << s.run.output;
  std::vector<int> mean[2] = {ReadPicture(s.File("composite.bmp")), std::vector<int>(SIZE, 0)};
  // mean[1], unaligned, lays the sources over each other by their centres, as a run finding no shift would.
  for (int i = 1; i <= 6; i++) {
    std::vector<int> source = ReadPicture(s.File("src" + std::to_string(i) + ".bmp"));
    ASSERT_TRUE(source.size() == SIZE && mean[0].size() == SIZE);
    for (size_t p = 0; p < SIZE; p++) mean[1][p] += source[p];
  }
  for (int& v : mean[1]) v /= 6;
  // Squared steps to the neighbours inside a margin of 5: per sample 114.93 aligned and 37.61 unaligned.
  double gradient[2] = {0.0, 0.0};
  for (int k = 0; k < 2; k++)
    for (int p = (5 * W + 5) * 3; p < ((H - 5) * W - 5) * 3; p++)
      if (p / 3 % W >= 5 && p / 3 % W < W - 5)
        for (int step : {3, 3 * W}) gradient[k] += std::pow(mean[k][p + step] - mean[k][p], 2);
  EXPECT_GT(gradient[0], gradient[1] * 2.0);
}

TEST(CompositeEndToEnd, MeanPictureIsTheFitsSumDividedByTheImageCount) {
  Sample s;  // at a fixed angle the results are whole-pixel copies, so the FITS values are their sums
  ASSERT_TRUE(s.Generate("--count 3 --seed 6 --scene planet --max-angle 0 --max-shift 3"));
  ASSERT_EQ(unlink(s.File("src2.bmp").c_str()), 0);
  ASSERT_EQ(s.Run(), 0) << s.run.output;
  EXPECT_NE(s.run.output.find("src2.bmpErreur : impossible d'ouvrir l'image src2.bmp\n"), std::string::npos);
  std::vector<int> sums = ReadFitsSums(s), mean = ReadPicture(s.File("composite.bmp"));
  std::vector<int> results = ReadPicture(s.File("res1.bmp")), third = ReadPicture(s.File("res3.bmp"));
  ASSERT_TRUE(sums.size() == SIZE && mean.size() == SIZE && results.size() == SIZE && third.size() == SIZE);
  for (size_t p = 0; p < SIZE; p++) results[p] += third[p];
  EXPECT_EQ(sums, results);
  EXPECT_GT(*std::max_element(sums.begin(), sums.end()), 255);  // so a wrong divisor would show
  for (int& v : sums) v /= 3;  // the missing source still counts
  EXPECT_EQ(mean, sums);
}

}  // namespace
