// The sample scenes: fixed by their seeds, and shifted and turned the way the registration reads them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

#include "sample_scene.h"

namespace {

const SceneParams STARS = {160, 120, SCENE_STARS};
const double PI = std::numbers::pi;

// Mean absolute colour difference between a at (x + dx, y) and b at (x, y), 10 pixels in from the edges.
double Mismatch(const Image& a, const Image& b, int dx) {
  double sum = 0.0;
  for (int p = 160 * 10 * 4; p < 160 * 110 * 4; p++)
    if (p % 4 < 3 && p / 4 % 160 >= 10 && p / 4 % 160 < 150)
      sum += std::abs(a.pixels[p + 4 * dx] - b.pixels[p]);
  return sum / (100 * 140 * 3);
}

TEST(SampleScene, SeedsFixEveryByteAndPositiveShiftXMovesTheSceneRight) {
  Image a, b, c, s1, s2, shifted;
  RenderScene(STARS, 42, a);
  RenderScene(STARS, 42, b);
  RenderScene(STARS, 43, c);
  RenderSource(STARS, 42, 1.3, -2, 1, 1.5, 77, s1);
  RenderSource(STARS, 42, 1.3, -2, 1, 1.5, 77, s2);
  RenderSource(STARS, 42, 0.0, 5, 0, 0.0, 99, shifted);
  EXPECT_EQ(0, memcmp(a.pixels, b.pixels, 160 * 120 * 4));
  EXPECT_EQ(0, memcmp(s1.pixels, s2.pixels, 160 * 120 * 4));
  EXPECT_GT(Mismatch(a, c, 0), 5.0);  // 17.2 per sample
  EXPECT_LT(Mismatch(shifted, a, 5), 6.0);  // 3.1 per sample; 9.4 at -5 and 6.7 at 0
  EXPECT_GT(std::min(Mismatch(shifted, a, -5), Mismatch(shifted, a, 0)), Mismatch(shifted, a, 5) + 1.0);
  for (Image* image : {&a, &b, &c, &s1, &s2, &shifted}) ReleasePixels(*image);
}

// A lone star 30 right and 10 below the centre, turned by 10 degrees and shifted by (3, -2).
TEST(SampleScene, TurnedStarLandsWhereTheRegistrationFormulaPutsIt) {
  Scene scene;
  BuildScene(STARS, 5, scene);
  scene.nebulaLevel = scene.noiseSigma = scene.skyLevel = 0.0;
  scene.stars = {SceneStar{110.0, 70.0, 1500.0, 1.2, 1.0, 1.0, 1.0}};
  Image view;
  RenderView(scene, ViewPose{10.0, 3, -2, 0.0}, 3, view);
  int peak = 0;
  for (int p = 0; p < 160 * 120; p++)
    if (view.pixels[p * 4 + 1] > view.pixels[peak * 4 + 1]) peak = p;
  EXPECT_NEAR(peak % 160, 80 + 3 + 30 * std::cos(PI / 18) - 10 * std::sin(PI / 18), 0.5);
  EXPECT_NEAR(peak / 160, 60 - 2 + 30 * std::sin(PI / 18) + 10 * std::cos(PI / 18), 0.5);
  ReleasePixels(view);
}

}  // namespace
