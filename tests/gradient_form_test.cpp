#include <gtest/gtest.h>

#include "blocks/blocks.h"
#include "test_pictures.h"

namespace {

const unsigned char* PixelAt(const TestPicture& picture, int32_t x, int32_t y) {
  return &picture.bytes[((size_t)y * picture.image.width + x) * 4];
}

TEST(GradientForm, UniformPictureIsGreyAnd128InsideWhileTheFrameKeepsItsColours) {
  TestPicture picture = MakePicture(6, 5, 0, 0);
  Fill(picture, 30, 61, 93, 200);  // grey 184 / 3, truncated to 61
  MakeGradientForm(picture.image);
  for (int32_t y = 0; y < 5; y++) {
    for (int32_t x = 0; x < 6; x++) {
      bool frame = x == 0 || y == 0 || x == 5 || y == 4;
      const unsigned char* p = PixelAt(picture, x, y);
      EXPECT_EQ(p[0], 61);
      EXPECT_EQ(p[1], frame ? 61 : 128) << x << "," << y;
      EXPECT_EQ(p[2], frame ? 93 : 128) << x << "," << y;
      EXPECT_EQ(p[3], 200);
    }
  }
}

// Blue is 0 and the grey 20 a: a gradient taken before the neighbours to the
// right and below are grey would see their blue of 0.
TEST(GradientForm, RampsReadTheGreyPassOfBothNeighbours) {
  TestPicture across = MakePicture(7, 4, 0, 0);
  TestPicture down = MakePicture(4, 7, 0, 0);
  for (int32_t a = 0; a < 7; a++) {
    for (int32_t b = 0; b < 4; b++) {
      SetPixel(across, a, b, 0, (unsigned char)(30 * a), (unsigned char)(30 * a), 255);
      SetPixel(down, b, a, 0, (unsigned char)(30 * a), (unsigned char)(30 * a), 255);
    }
  }
  MakeGradientForm(across.image);
  MakeGradientForm(down.image);
  for (int32_t a = 1; a <= 5; a++) {
    for (int32_t b = 1; b <= 2; b++) {
      EXPECT_EQ(PixelAt(across, a, b)[0], 20 * a);
      EXPECT_EQ(PixelAt(across, a, b)[1], 128 - 20);
      EXPECT_EQ(PixelAt(across, a, b)[2], 128);
      EXPECT_EQ(PixelAt(down, b, a)[1], 128);
      EXPECT_EQ(PixelAt(down, b, a)[2], 128 - 20);
    }
  }
}

// 3 x 3 pictures: the centre is the only pixel inside the frame.
TEST(GradientForm, HalvingTruncatesTowardZero) {
  struct NeighbourCase {
    const char* name;
    unsigned char left, right, above, below, across, down;
  };
  const NeighbourCase cases[] = {
      {"odd negative difference -3 gives -1", 0, 3, 0, 3, 127, 127},
      {"odd positive difference 3 gives 1", 3, 0, 3, 0, 129, 129},
      {"differences of one give 0", 7, 8, 8, 7, 128, 128},
      {"largest differences reach 255 and 1", 255, 0, 0, 255, 255, 1},
  };
  for (const NeighbourCase& c : cases) {
    TestPicture picture = MakePicture(3, 3, 0, 0);
    Fill(picture, 9, 9, 9, 255);
    SetPixel(picture, 0, 1, c.left, c.left, c.left, 255);
    SetPixel(picture, 2, 1, c.right, c.right, c.right, 255);
    SetPixel(picture, 1, 0, c.above, c.above, c.above, 255);
    SetPixel(picture, 1, 2, c.below, c.below, c.below, 255);
    MakeGradientForm(picture.image);
    EXPECT_EQ(PixelAt(picture, 1, 1)[1], c.across) << c.name;
    EXPECT_EQ(PixelAt(picture, 1, 1)[2], c.down) << c.name;
  }
}

TEST(GradientForm, PicturesUnderThreePixelsGetTheGreyPassOnly) {
  const int32_t sizes[][2] = {{2, 6}, {6, 2}, {1, 5}, {1, 1}};
  for (const auto& size : sizes) {
    TestPicture picture = MakePicture(size[0], size[1], 0, 0);
    for (int32_t y = 0; y < size[1]; y++)
      for (int32_t x = 0; x < size[0]; x++)
        SetPixel(picture, x, y, (unsigned char)(40 * x), (unsigned char)(7 + 50 * y), 33, 255);
    TestPicture before = picture;
    MakeGradientForm(picture.image);
    for (int32_t y = 0; y < size[1]; y++) {
      for (int32_t x = 0; x < size[0]; x++) {
        const unsigned char* was = PixelAt(before, x, y);
        const unsigned char* p = PixelAt(picture, x, y);
        EXPECT_EQ(p[0], (was[0] + was[1] + 33) / 3) << size[0] << "x" << size[1];
        EXPECT_EQ(p[1], was[1]) << size[0] << "x" << size[1];
        EXPECT_EQ(p[2], 33) << size[0] << "x" << size[1];
      }
    }
  }
}

}  // namespace
