// Synthetic sky scenes and their views as a camera would record them: the
// scene is a continuous description in reference-picture coordinates, and
// every view (the reference or a source) is rendered from it directly, so a
// source is never a resampled copy of the reference.
#pragma once

#include <cstdint>
#include <vector>

#include "image/image.h"

enum SceneKind { SCENE_STARS, SCENE_PLANET };

struct SceneParams {
  int32_t width;
  int32_t height;
  SceneKind kind;
};

// A star: total flux spread by a circular Gaussian of width sigma.
struct SceneStar {
  double x;  // reference-picture coordinates, pixel centres at whole numbers
  double y;
  double flux;   // sum over the star's pixels, in grey levels, before colour
  double sigma;  // pixels
  double red;    // colour factors, about 1
  double green;
  double blue;
};

struct PlanetSpot {
  double latitude;   // -1..1 across the disc, along the tilted axis
  double longitude;  // -1..1 across the disc
  double radius;     // fraction of the planet radius
  double strength;   // signed: dark spots negative
};

struct Scene {
  SceneParams params;
  double skyLevel;     // grey level of the empty sky
  double noiseSigma;   // per-frame read noise, grey levels
  double nebulaLevel;  // peak brightness of the nebulosity; 0 switches it off
  uint32_t nebulaSeed;
  std::vector<SceneStar> stars;
  // Planet scene only.
  double planetX;
  double planetY;
  double planetRadius;
  double planetTilt;  // radians, direction of the band axis
  uint32_t planetSeed;
  std::vector<PlanetSpot> spots;
};

// How a view sees the scene. Output pixel (sx, sy) shows the scene point at
// reference offset (u, v) = R(-angle)(sx - x0 - shiftX, sy - y0 - shiftY) from
// the reference centre (x0, y0) = (width / 2, height / 2), y downward, then
// moved by the smooth distortion field (see DistortionAt).
struct ViewPose {
  double angleDegrees;
  int32_t shiftX;
  int32_t shiftY;
  double distortion;  // amplitude in pixels, 0 for none
};

// Fills scene from the seed alone: same parameters and seed, same scene.
void BuildScene(const SceneParams& params, uint32_t seed, Scene& scene);

// Displacement (dx, dy) added to a reference position (x, y) by a distortion
// of the given amplitude: one sine period across the picture in each axis.
void DistortionAt(const SceneParams& params, double amplitude, double x, double y, double& dx,
                  double& dy);

// Renders one view of a built scene into out, allocating out.pixels with
// AllocatePixels (the caller releases them). Every weight byte is 255.
void RenderView(const Scene& scene, const ViewPose& pose, uint32_t noiseSeed, Image& out);

// The reference picture of the scene given by (params, seed).
void RenderScene(const SceneParams& params, uint32_t seed, Image& out);

// A source picture of the scene given by (params, seed), turned by
// angleDegrees, shifted by (shiftX, shiftY) and distorted, with the noise of
// noiseSeed.
void RenderSource(const SceneParams& params, uint32_t seed, double angleDegrees, int32_t shiftX,
                  int32_t shiftY, double distortion, uint32_t noiseSeed, Image& out);

// Small deterministic generator shared by the scene and the command line.
uint32_t NextSampleRandom(uint64_t& state);
double SampleUniform(uint64_t& state);  // [0, 1)
uint32_t MixSeed(uint32_t seed, uint32_t salt);
