// The composite of generated sequences by the kelvarion process: its sharpness and its FITS sums.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "run_process.h"
#include "sample_sequence.h"

namespace {

const int W = 240;
const int H = 180;

// The values of a W x H plane of 16-bit big-endian integers, stored bottom row first, in memory order.
std::vector<int> ReadFitsPlane(const std::string& path) {
  std::string bytes = ReadWholeFile(path);
  std::vector<int> values;
  bool ok = bytes.size() >= 2880 + 2 * W * H;
  for (const char* card : {"BITPIX  =                   16", "NAXIS1  =                  240",
                           "NAXIS2  =                  180"})
    ok = ok && bytes.find(card) < 2880;
  if (!ok) return values;
  for (int p = 0; p < W * H; p++) {
    const unsigned char* v = (const unsigned char*)bytes.data() + 2880 + 2 * ((H - 1 - p / W) * W + p % W);
    values.push_back((int16_t)(uint16_t)(v[0] << 8 | v[1]));
  }
  return values;
}

bool HasSize(const LoadedPicture& p) { return p.loaded && p.image.width == W && p.image.height == H; }

TEST(CompositeEndToEnd, AlignedCompositeIsSharperThanTheUnalignedMean) {
  Sample s;
  ASSERT_TRUE(s.Generate("--count 6 --seed 3 --scene planet --max-angle 0 --max-shift 4"));
  ASSERT_EQ(s.Run(), 0) << s.run.output;
  LoadedPicture reference(s.File("reference.bmp"));
  LoadedPicture composite(s.File("composite.bmp"));
  ASSERT_TRUE(HasSize(reference) && HasSize(composite));
  // The unaligned mean lays the sources over each other by their centres, as a run finding no shift would.
  std::vector<int> mean(W * H * 3, 0);
  for (int i = 1; i <= 6; i++) {
    LoadedPicture source(s.File("src" + std::to_string(i) + ".bmp"));
    ASSERT_TRUE(HasSize(source));
    for (int p = 0; p < W * H * 3; p++) mean[p] += source.At(p / 3 % W, p / 3 / W, p % 3);
  }
  // Squared difference from the reference and squared steps to the neighbours, inside a margin of 5.
  double difference[2] = {0.0, 0.0};
  double gradient[2] = {0.0, 0.0};
  for (int k = 0; k < 2; k++)
    for (int y = 5; y < H - 5; y++)
      for (int x = 5; x < W - 5; x++)
        for (int c = 0; c < 3; c++) {
          auto at = [&](int u, int v) { return k ? mean[(v * W + u) * 3 + c] / 6 : composite.At(u, v, c); };
          difference[k] += std::pow(at(x, y) - reference.At(x, y, c), 2);
          gradient[k] += std::pow(at(x + 1, y) - at(x, y), 2) + std::pow(at(x, y + 1) - at(x, y), 2);
        }
  // Per sample: difference 9.78 aligned vs 161.52 unaligned; gradient energy 114.93 vs 37.61.
  EXPECT_LT(difference[0] * 5.0, difference[1]);
  EXPECT_GT(gradient[0], gradient[1] * 2.0);
}

TEST(CompositeEndToEnd, MeanPictureIsTheFitsSumDividedByTheImageCount) {
  Sample s;  // at a fixed angle the results are whole-pixel copies, so the FITS values are their sums
  ASSERT_TRUE(s.Generate("--count 3 --seed 6 --scene planet --max-angle 0 --max-shift 3"));
  ASSERT_EQ(unlink(s.File("src2.bmp").c_str()), 0);
  ASSERT_EQ(s.Run(), 0) << s.run.output;
  EXPECT_NE(s.run.output.find("src2.bmpErreur : impossible d'ouvrir l'image src2.bmp\n"), std::string::npos);
  LoadedPicture composite(s.File("composite.bmp"));
  LoadedPicture first(s.File("res1.bmp"));
  LoadedPicture third(s.File("res3.bmp"));
  ASSERT_TRUE(HasSize(composite) && HasSize(first) && HasSize(third));
  const std::pair<const char*, int> planes[] = {{"compositeR.fit", 2}, {"compositeV.fit", 1},
                                                {"compositeB.fit", 0}};
  int wrongSums = 0, wrongMeans = 0, sumsAboveAByte = 0, meansByTheLoadedCountDiffer = 0;
  for (const auto& [file, c] : planes) {
    std::vector<int> plane = ReadFitsPlane(s.File(file));
    ASSERT_EQ(plane.size(), (size_t)W * H) << file;
    for (int p = 0; p < W * H; p++) {
      wrongSums += plane[p] != first.At(p % W, p / W, c) + third.At(p % W, p / W, c);
      wrongMeans += composite.At(p % W, p / W, c) != plane[p] / 3;
      sumsAboveAByte += plane[p] > 255;
      meansByTheLoadedCountDiffer += plane[p] / 3 != plane[p] / 2;
    }
  }
  EXPECT_EQ(wrongSums, 0);
  EXPECT_EQ(wrongMeans, 0);  // the missing source still counts in the divisor
  EXPECT_GT(sumsAboveAByte, 0);
  EXPECT_GT(meansByTheLoadedCountDiffer, 0);
}

}  // namespace
