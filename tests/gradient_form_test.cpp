#include <gtest/gtest.h>

#include <tuple>

#include "blocks/blocks.h"
#include "test_pictures.h"

namespace {

// 3 x 3 of grey 20: greys v above, left, right, below the centre as (0, v, 2 v), read in one pass as blue 0.
TEST(GradientForm, CentreHalvesGreyDifferencesTowardZeroAndTheFrameKeepsItsBytes) {
  const int cases[][6] = {{20, 20, 20, 20, 128, 128}, {0, 0, 3, 3, 127, 127}, {3, 3, 0, 0, 129, 129},
                          {8, 7, 8, 7, 128, 128},     {1, 120, 1, 120, 187, 69}};
  for (const auto& c : cases) {
    TestPicture p = MakePicture(3, 3, 0, 0);
    Fill(p, 0, 62, 0, 200);
    for (int n = 0; n < 4; n++)  // pixels 1, 3, 5, 7
      SetPixel(p, (2 * n + 1) % 3, (2 * n + 1) / 3, 0, (unsigned char)c[n], (unsigned char)(2 * c[n]), 200);
    std::vector<unsigned char> want = p.bytes;  // grey everywhere; bytes 1 and 2 kept but at the centre
    for (size_t i = 0; i < 36; i += 4) want[i] = (unsigned char)((want[i + 1] + want[i + 2]) / 3);
    std::tie(want[17], want[18]) = std::tuple(c[4], c[5]);
    MakeGradientForm(p.image);
    EXPECT_EQ(p.bytes, want) << c[0] << " " << c[1] << " " << c[2] << " " << c[3];
  }
}

}  // namespace
