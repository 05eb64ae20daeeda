#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <numbers>

#include "image/image.h"
#include "sample_scene.h"

namespace {

const SceneParams STARS = {160, 120, SCENE_STARS};
size_t ByteCount(const Image& image) { return (size_t)image.width * image.height * 4; }

// Mean absolute colour difference between a at (x + dx, y) and b at (x, y), 10 pixels in from the edges.
double Mismatch(const Image& a, const Image& b, int dx) {
  double sum = 0.0;
  for (int y = 10; y < 110; y++)
    for (int x = 10; x < 150; x++)
      for (int k = 0; k < 3; k++) sum += std::abs(a.pixels[(y * 160 + x + dx) * 4 + k] - b.pixels[(y * 160 + x) * 4 + k]);
  return sum / (100 * 140 * 3);
}

TEST(SampleScene, SeedsFixEveryByteAndEveryWeightIsFull) {
  Image a, b, c, s1, s2, planet;
  RenderScene(STARS, 42, a); RenderScene(STARS, 42, b); RenderScene(STARS, 43, c);
  RenderSource(STARS, 42, 1.3, -2, 1, 1.5, 77, s1); RenderSource(STARS, 42, 1.3, -2, 1, 1.5, 77, s2);
  RenderSource({160, 120, SCENE_PLANET}, 4, 1.2, -1, 1, 0.0, 8, planet);
  EXPECT_EQ(0, memcmp(a.pixels, b.pixels, ByteCount(a)));
  EXPECT_EQ(0, memcmp(s1.pixels, s2.pixels, ByteCount(s1)));
  size_t differing = 0, full = 0;
  for (size_t i = 0; i < ByteCount(a); i++) differing += a.pixels[i] != c.pixels[i];
  for (size_t i = 3; i < ByteCount(a); i += 4) full += (s1.pixels[i] == 255) + (planet.pixels[i] == 255);
  EXPECT_GT(differing, ByteCount(a) / 4);
  EXPECT_EQ(full, ByteCount(a) / 2);
  for (Image* image : {&a, &b, &c, &s1, &s2, &planet}) ReleasePixels(*image);
}

TEST(SampleScene, PositiveShiftXMovesTheSceneRight) {
  Image reference, source;
  RenderScene(STARS, 11, reference); RenderSource(STARS, 11, 0.0, 5, 0, 0.0, 99, source);
  double right = Mismatch(source, reference, 5);
  EXPECT_LT(right, 6.0);
  EXPECT_GT(Mismatch(source, reference, -5), right + 1.0);
  EXPECT_GT(Mismatch(source, reference, 0), right + 1.0);
  ReleasePixels(reference); ReleasePixels(source);
}

// A lone star 30 right and 10 below the centre, turned by 10 degrees and shifted by (3, -2).
TEST(SampleScene, TurnedStarLandsWhereTheRegistrationFormulaPutsIt) {
  Scene scene;
  BuildScene(STARS, 5, scene);
  scene.nebulaLevel = scene.noiseSigma = scene.skyLevel = 0.0;
  scene.stars = {SceneStar{110.0, 70.0, 1500.0, 1.2, 1.0, 1.0, 1.0}};
  Image view; RenderView(scene, ViewPose{10.0, 3, -2, 0.0}, 3, view);
  double sum = 0.0, sx = 0.0, sy = 0.0, c = std::cos(std::numbers::pi / 18.0), s = std::sin(std::numbers::pi / 18.0);
  for (int y = 0; y < 120; y++)
    for (int x = 0; x < 160; x++) {
      double v = std::max(view.pixels[(y * 160 + x) * 4 + 1] - 2.0, 0.0);
      sum += v; sx += v * x; sy += v * y;
    }
  EXPECT_NEAR(sx / sum, 80 + 3 + c * 30 - s * 10, 0.25);
  EXPECT_NEAR(sy / sum, 60 - 2 + s * 30 + c * 10, 0.25);
  ReleasePixels(view);
}

}  // namespace
