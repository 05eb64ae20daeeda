#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "image/image.h"
#include "sample_scene.h"

namespace {

const double PI = 3.14159265358979323846;

const SceneParams SMALL_STARS = {160, 120, SCENE_STARS};
const SceneParams SMALL_PLANET = {160, 120, SCENE_PLANET};

size_t ByteCount(const Image& image) { return (size_t)image.width * image.height * 4; }

// Mean absolute colour difference between a at (x + offsetX, y) and b at (x, y)
// over the block [left, right) x [top, bottom) of b.
double MeanAbsDifference(const Image& a, const Image& b, int offsetX, int left, int top, int right,
                         int bottom) {
  double sum = 0.0;
  int64_t count = 0;
  for (int y = top; y < bottom; y++) {
    for (int x = left; x < right; x++) {
      const unsigned char* pa = a.pixels + ((size_t)y * a.width + x + offsetX) * 4;
      const unsigned char* pb = b.pixels + ((size_t)y * b.width + x) * 4;
      for (int k = 0; k < 3; k++) sum += std::abs((int)pa[k] - (int)pb[k]);
      count += 3;
    }
  }
  return sum / count;
}

// Brightness-weighted centre of the green plane above the given floor.
void Centroid(const Image& image, double floor, double& cx, double& cy) {
  double sum = 0.0, sx = 0.0, sy = 0.0;
  for (int y = 0; y < image.height; y++) {
    for (int x = 0; x < image.width; x++) {
      double v = image.pixels[((size_t)y * image.width + x) * 4 + 1] - floor;
      if (v <= 0.0) continue;
      sum += v;
      sx += v * x;
      sy += v * y;
    }
  }
  cx = sx / sum;
  cy = sy / sum;
}

// A dark, empty scene with one star, for checking where the star lands.
void OneStarScene(double x, double y, Scene& scene) {
  BuildScene(SMALL_STARS, 5, scene);
  scene.nebulaLevel = 0.0;
  scene.noiseSigma = 0.0;
  scene.skyLevel = 0.0;
  scene.stars.clear();
  SceneStar star = {x, y, 1500.0, 1.2, 1.0, 1.0, 1.0};
  scene.stars.push_back(star);
}

TEST(SampleScene, SameSeedGivesSameBytesOtherSeedDiffers) {
  Image a, b, c;
  RenderScene(SMALL_STARS, 42, a);
  RenderScene(SMALL_STARS, 42, b);
  RenderScene(SMALL_STARS, 43, c);
  EXPECT_EQ(0, memcmp(a.pixels, b.pixels, ByteCount(a)));
  size_t differing = 0;
  for (size_t i = 0; i < ByteCount(a); i++) differing += a.pixels[i] != c.pixels[i];
  EXPECT_GT(differing, ByteCount(a) / 4);
  ReleasePixels(a);
  ReleasePixels(b);
  ReleasePixels(c);

  Image s1, s2;
  RenderSource(SMALL_STARS, 42, 1.3, -2, 1, 1.5, 77, s1);
  RenderSource(SMALL_STARS, 42, 1.3, -2, 1, 1.5, 77, s2);
  EXPECT_EQ(0, memcmp(s1.pixels, s2.pixels, ByteCount(s1)));
  ReleasePixels(s1);
  ReleasePixels(s2);
}

TEST(SampleScene, UnmovedSourceEqualsReferenceUpToFreshNoise) {
  for (const SceneParams& params : {SMALL_STARS, SMALL_PLANET}) {
    Image reference, source;
    RenderScene(params, 9, reference);
    RenderSource(params, 9, 0.0, 0, 0, 0.0, 1234, source);
    EXPECT_NE(0, memcmp(reference.pixels, source.pixels, ByteCount(reference)));
    EXPECT_LT(MeanAbsDifference(source, reference, 0, 0, 0, 160, 120), 6.0);
    ReleasePixels(reference);
    ReleasePixels(source);
  }
}

TEST(SampleScene, ShiftMovesTheSceneRightForPositiveDx) {
  Image reference, source;
  RenderScene(SMALL_STARS, 11, reference);
  RenderSource(SMALL_STARS, 11, 0.0, 5, 0, 0.0, 99, source);
  // sx = x0 + 5 + u: the source at (x + 5, y) shows what the reference shows at (x, y).
  double right = MeanAbsDifference(source, reference, 5, 10, 10, 150, 110);
  double wrong = MeanAbsDifference(source, reference, -5, 10, 10, 150, 110);
  double unmoved = MeanAbsDifference(source, reference, 0, 10, 10, 150, 110);
  EXPECT_LT(right, 6.0);
  EXPECT_GT(wrong, right + 1.0);
  EXPECT_GT(unmoved, right + 1.0);
  ReleasePixels(reference);
  ReleasePixels(source);
}

TEST(SampleScene, TurnedStarLandsWhereTheRegistrationFormulaPutsIt) {
  Scene scene;
  OneStarScene(80 + 30, 60 + 10, scene);
  ViewPose pose = {10.0, 3, -2, 0.0};
  Image view;
  RenderView(scene, pose, 3, view);
  double cx, cy;
  Centroid(view, 2.0, cx, cy);
  double c = std::cos(10.0 * PI / 180.0), s = std::sin(10.0 * PI / 180.0);
  EXPECT_NEAR(cx, 80 + 3 + c * 30 - s * 10, 0.25);
  EXPECT_NEAR(cy, 60 - 2 + s * 30 + c * 10, 0.25);
  ReleasePixels(view);
}

// Mean absolute difference between a turned view and the reference read back
// through the registration formula, with bilinear reads of the reference.
double TurnedMismatch(const Image& view, const Image& reference, double angleDegrees, int dx, int dy) {
  double c = std::cos(angleDegrees * PI / 180.0), s = std::sin(angleDegrees * PI / 180.0);
  double sum = 0.0;
  int64_t count = 0;
  for (int sy = 20; sy < 100; sy++) {
    for (int sx = 20; sx < 140; sx++) {
      double px = sx - 80 - dx, py = sy - 60 - dy;
      double rx = 80 + c * px + s * py, ry = 60 - s * px + c * py;
      int ix = (int)std::floor(rx), iy = (int)std::floor(ry);
      double fx = rx - ix, fy = ry - iy;
      for (int k = 0; k < 3; k++) {
        auto at = [&](int x, int y) { return (double)reference.pixels[((size_t)y * 160 + x) * 4 + k]; };
        double ref = at(ix, iy) * (1 - fx) * (1 - fy) + at(ix + 1, iy) * fx * (1 - fy) +
                     at(ix, iy + 1) * (1 - fx) * fy + at(ix + 1, iy + 1) * fx * fy;
        sum += std::fabs(view.pixels[((size_t)sy * 160 + sx) * 4 + k] - ref);
        count++;
      }
    }
  }
  return sum / count;
}

TEST(SampleScene, TurnedNebulaFollowsTheRegistrationFormula) {
  Scene scene;
  BuildScene(SMALL_STARS, 21, scene);
  scene.stars.clear();
  scene.noiseSigma = 0.0;
  scene.nebulaLevel = 200.0;
  Image reference, view;
  RenderView(scene, ViewPose{0.0, 0, 0, 0.0}, 1, reference);
  RenderView(scene, ViewPose{8.0, 2, -3, 0.0}, 2, view);
  double right = TurnedMismatch(view, reference, 8.0, 2, -3);
  double wrongAngle = TurnedMismatch(view, reference, -8.0, 2, -3);
  EXPECT_LT(right, 3.5);
  EXPECT_GT(wrongAngle, 2.0 * right);
  ReleasePixels(reference);
  ReleasePixels(view);
}

TEST(SampleScene, DistortedStarSitsWhereTheFieldCarriesItOntoTheScenePoint) {
  const double sceneX = 120.0, sceneY = 35.0, amplitude = 3.0;
  Scene scene;
  OneStarScene(sceneX, sceneY, scene);
  ViewPose pose = {0.0, 0, 0, amplitude};
  Image view;
  RenderView(scene, pose, 3, view);
  double cx, cy, dx, dy;
  Centroid(view, 2.0, cx, cy);
  DistortionAt(SMALL_STARS, amplitude, cx, cy, dx, dy);
  EXPECT_NEAR(cx + dx, sceneX, 0.25);
  EXPECT_NEAR(cy + dy, sceneY, 0.25);
  // The field really moved it: at this point both components are well above a pixel.
  EXPECT_GT(std::hypot(cx - sceneX, cy - sceneY), 2.0);
  ReleasePixels(view);
}

TEST(SampleScene, EveryPixelHasFullWeight) {
  Image stars, planet;
  RenderSource(SMALL_STARS, 4, -1.7, 2, -2, 2.0, 8, stars);
  RenderSource(SMALL_PLANET, 4, 1.2, -1, 1, 0.0, 8, planet);
  for (const Image* image : {&stars, &planet}) {
    size_t full = 0;
    for (size_t i = 3; i < ByteCount(*image); i += 4) full += image->pixels[i] == 255;
    EXPECT_EQ(full, (size_t)image->width * image->height);
  }
  ReleasePixels(stars);
  ReleasePixels(planet);
}

TEST(SampleScene, PlanetDiscIsBrightAgainstDarkSky) {
  Image planet;
  RenderScene(SMALL_PLANET, 6, planet);
  const unsigned char* centre = planet.pixels + ((size_t)60 * 160 + 80) * 4;
  const unsigned char* corner = planet.pixels + ((size_t)3 * 160 + 3) * 4;
  EXPECT_GT(centre[2], 120);
  EXPECT_LT(corner[2], 30);
  ReleasePixels(planet);
}

}  // namespace
