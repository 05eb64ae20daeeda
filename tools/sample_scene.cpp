// Scene construction and view rendering for the sample sequences.
#include "sample_scene.h"

#include <cmath>
#include <cstdint>
#include <vector>

static const double PI = 3.14159265358979323846;

uint32_t NextSampleRandom(uint64_t& state) {
  // splitmix64: fixed arithmetic, so sequences do not depend on the library.
  state += UINT64_C(0x9E3779B97F4A7C15);
  uint64_t z = state;
  z = (z ^ (z >> 30)) * UINT64_C(0xBF58476D1CE4E5B9);
  z = (z ^ (z >> 27)) * UINT64_C(0x94D049BB133111EB);
  return (uint32_t)((z ^ (z >> 31)) >> 32);
}

double SampleUniform(uint64_t& state) { return NextSampleRandom(state) / 4294967296.0; }

uint32_t MixSeed(uint32_t seed, uint32_t salt) {
  uint64_t state = ((uint64_t)seed << 32) | salt;
  return NextSampleRandom(state);
}

static double Gaussian(uint64_t& state) {
  double a = SampleUniform(state);
  double b = SampleUniform(state);
  return std::sqrt(-2.0 * std::log(1.0 - a)) * std::cos(2.0 * PI * b);
}

// Lattice value in [-1, 1] for integer point (ix, iy) of one noise layer.
static double LatticeValue(int64_t ix, int64_t iy, uint32_t seed) {
  uint64_t h = (uint64_t)ix * UINT64_C(0x9E3779B185EBCA87) ^ (uint64_t)iy * UINT64_C(0xC2B2AE3D27D4EB4F) ^
               ((uint64_t)seed << 17);
  h ^= h >> 29;
  h *= UINT64_C(0xBF58476D1CE4E5B9);
  h ^= h >> 32;
  return (double)(h & 0xFFFFFF) / 8388607.5 - 1.0;
}

static double Fade(double t) { return t * t * t * (t * (t * 6.0 - 15.0) + 10.0); }

static double ValueNoise(double x, double y, uint32_t seed) {
  double fx = std::floor(x);
  double fy = std::floor(y);
  int64_t ix = (int64_t)fx;
  int64_t iy = (int64_t)fy;
  double tx = Fade(x - fx);
  double ty = Fade(y - fy);
  double a = LatticeValue(ix, iy, seed);
  double b = LatticeValue(ix + 1, iy, seed);
  double c = LatticeValue(ix, iy + 1, seed);
  double d = LatticeValue(ix + 1, iy + 1, seed);
  double top = a + (b - a) * tx;
  double bottom = c + (d - c) * tx;
  return top + (bottom - top) * ty;
}

// Fractal sum of value noise, roughly in [-1, 1].
static double Fbm(double x, double y, uint32_t seed, int octaves) {
  double sum = 0.0;
  double amplitude = 0.5;
  double norm = 0.0;
  for (int k = 0; k < octaves; k++) {
    sum += amplitude * ValueNoise(x, y, seed + (uint32_t)k * 101u);
    norm += amplitude;
    // Rotate each octave so lattice axes do not line up into a visible grid.
    double nx = 1.6 * x - 1.2 * y + 17.3;
    double ny = 1.2 * x + 1.6 * y - 9.1;
    x = nx;
    y = ny;
    amplitude *= 0.5;
  }
  return sum / norm * 1.6;
}

static double Clamp01(double v) { return v < 0.0 ? 0.0 : (v > 1.0 ? 1.0 : v); }

static double SmoothStep(double lo, double hi, double v) {
  double t = Clamp01((v - lo) / (hi - lo));
  return t * t * (3.0 - 2.0 * t);
}

static void StarColour(uint64_t& state, SceneStar& star) {
  double pick = SampleUniform(state);
  if (pick < 0.15) {
    star.red = 0.72, star.green = 0.88, star.blue = 1.2;  // hot, blue-white
  } else if (pick < 0.6) {
    star.red = 1.0, star.green = 1.0, star.blue = 1.0;
  } else if (pick < 0.85) {
    star.red = 1.12, star.green = 1.0, star.blue = 0.78;  // solar
  } else {
    star.red = 1.3, star.green = 0.86, star.blue = 0.55;  // cool giant
  }
}

static void BuildStars(const SceneParams& params, uint64_t& state, Scene& scene) {
  // Cover the diagonal square around the centre so turned and shifted views
  // still find stars in their corners.
  double side = std::sqrt((double)params.width * params.width + (double)params.height * params.height) + 40.0;
  double density = 1.0 / 1000.0;
  int count = (int)(side * side * density);
  if (count < 16) count = 16;
  double cx = params.width / 2;
  double cy = params.height / 2;
  scene.stars.reserve((size_t)count);
  for (int i = 0; i < count; i++) {
    SceneStar star;
    star.x = cx + (SampleUniform(state) - 0.5) * side;
    star.y = cy + (SampleUniform(state) - 0.5) * side;
    star.sigma = 0.85 + 0.5 * SampleUniform(state);
    // Power-law brightness: many faint stars, a few that saturate.
    double faintest = 12.0 * 2.0 * PI * star.sigma * star.sigma;
    star.flux = faintest * std::pow(1.0 - SampleUniform(state), -1.0 / 1.0);
    if (star.flux > 60000.0) star.flux = 60000.0;
    StarColour(state, star);
    scene.stars.push_back(star);
  }
}

static void BuildPlanet(const SceneParams& params, uint64_t& state, Scene& scene) {
  double small = params.width < params.height ? params.width : params.height;
  scene.planetRadius = small * (0.3 + 0.06 * SampleUniform(state));
  scene.planetX = params.width / 2 + (SampleUniform(state) - 0.5) * small * 0.1;
  scene.planetY = params.height / 2 + (SampleUniform(state) - 0.5) * small * 0.1;
  scene.planetTilt = (SampleUniform(state) - 0.5) * 0.6;
  scene.planetSeed = NextSampleRandom(state);
  PlanetSpot great = {-0.38 + 0.1 * SampleUniform(state), -0.4 + 0.8 * SampleUniform(state), 0.13, -0.5};
  scene.spots.push_back(great);
  int count = 3 + (int)(SampleUniform(state) * 4);
  for (int i = 0; i < count; i++) {
    PlanetSpot spot;
    spot.latitude = (SampleUniform(state) - 0.5) * 1.4;
    spot.longitude = (SampleUniform(state) - 0.5) * 1.4;
    spot.radius = 0.025 + 0.035 * SampleUniform(state);
    spot.strength = SampleUniform(state) < 0.5 ? -0.45 : 0.35;
    scene.spots.push_back(spot);
  }
  // A few moons and background stars give the limb some company.
  int moons = 2 + (int)(SampleUniform(state) * 3);
  for (int i = 0; i < moons; i++) {
    SceneStar moon;
    double along = (SampleUniform(state) < 0.5 ? -1.0 : 1.0) * scene.planetRadius * (1.2 + 0.45 * SampleUniform(state));
    moon.x = scene.planetX + along * std::cos(scene.planetTilt);
    moon.y = scene.planetY + along * std::sin(scene.planetTilt) + (SampleUniform(state) - 0.5) * 6.0;
    moon.sigma = 1.1;
    moon.flux = 2500.0 + 2500.0 * SampleUniform(state);
    moon.red = 1.05, moon.green = 1.0, moon.blue = 0.9;
    scene.stars.push_back(moon);
  }
}

void BuildScene(const SceneParams& params, uint32_t seed, Scene& scene) {
  uint64_t state = ((uint64_t)seed << 32) ^ UINT64_C(0x5CE9E5CE9E);
  scene.params = params;
  scene.stars.clear();
  scene.spots.clear();
  scene.noiseSigma = 2.0;
  scene.nebulaSeed = NextSampleRandom(state);
  scene.planetX = scene.planetY = scene.planetRadius = scene.planetTilt = 0.0;
  scene.planetSeed = 0;
  if (params.kind == SCENE_PLANET) {
    scene.skyLevel = 8.0;
    scene.nebulaLevel = 0.0;
    BuildPlanet(params, state, scene);
  } else {
    scene.skyLevel = 16.0;
    scene.nebulaLevel = 70.0;
    BuildStars(params, state, scene);
  }
}

void DistortionAt(const SceneParams& params, double amplitude, double x, double y, double& dx, double& dy) {
  if (amplitude == 0.0) {
    dx = dy = 0.0;
    return;
  }
  dx = amplitude * std::sin(2.0 * PI * y / params.height);
  dy = amplitude * std::sin(2.0 * PI * x / params.width);
}

// Nebulosity radiance (blue, green, red) at reference position (x, y).
static void NebulaAt(const Scene& scene, double x, double y, double rgb[3]) {
  double small = scene.params.width < scene.params.height ? scene.params.width : scene.params.height;
  double period = small / 2.5 > 24.0 ? small / 2.5 : 24.0;
  double fx = x / period;
  double fy = y / period;
  double body = Fbm(fx, fy, scene.nebulaSeed, 6);
  double tint = Fbm(fx * 0.7 + 5.2, fy * 0.7 - 3.1, scene.nebulaSeed ^ 0xA5A5u, 4);
  double dust = Fbm(fx * 1.8 - 7.7, fy * 1.8 + 2.9, scene.nebulaSeed ^ 0x5A5Au, 5);
  double density = SmoothStep(-0.6, 0.8, body);
  density = 0.12 + 0.88 * density * std::sqrt(density);  // faint glow everywhere, brighter clouds
  density *= 1.0 - 0.7 * SmoothStep(0.05, 0.6, dust);    // dark lanes
  double level = scene.nebulaLevel * density;
  double oxygen = SmoothStep(-0.4, 0.6, tint);  // share of the blue-green emission
  rgb[0] = level * (0.45 * (1.0 - oxygen) + 0.95 * oxygen);
  rgb[1] = level * (0.3 * (1.0 - oxygen) + 0.9 * oxygen);
  rgb[2] = level * (1.0 * (1.0 - oxygen) + 0.35 * oxygen);
}

// Planet radiance (blue, green, red) at reference position (x, y); 0 off the disc.
static void PlanetAt(const Scene& scene, double x, double y, double rgb[3]) {
  double ox = (x - scene.planetX) / scene.planetRadius;
  double oy = (y - scene.planetY) / scene.planetRadius;
  double r2 = ox * ox + oy * oy;
  rgb[0] = rgb[1] = rgb[2] = 0.0;
  if (r2 >= 1.0) return;
  double c = std::cos(scene.planetTilt);
  double s = std::sin(scene.planetTilt);
  double lon = c * ox + s * oy;
  double lat = -s * ox + c * oy;
  double z = std::sqrt(1.0 - r2);
  // Foreshortened longitude so features crowd toward the limb like on a sphere.
  double sphereLon = std::asin(lon / std::sqrt(1.0 - lat * lat + 1e-12));
  double turbulence = Fbm(sphereLon * 3.0, lat * 14.0, scene.planetSeed, 5);
  double band = std::sin(lat * PI * 4.3 + 0.35 * turbulence + 0.4);
  double belt = SmoothStep(-0.2, 0.6, band);  // 1 in the dark belts
  double detail = 0.08 * Fbm(sphereLon * 9.0, lat * 30.0, scene.planetSeed ^ 0x77u, 4);
  double shade = 1.0 + detail;
  for (const PlanetSpot& spot : scene.spots) {
    double dLon = (sphereLon / (PI / 2) - spot.longitude) / (spot.radius * 1.6);
    double dLat = (lat - spot.latitude) / spot.radius;
    double d2 = dLon * dLon + dLat * dLat;
    if (d2 < 4.0) shade += spot.strength * std::exp(-d2 * 1.5);
  }
  double limb = 0.3 + 0.7 * std::pow(z, 0.55);
  double level = 215.0 * limb * shade;
  double zoneBgr[3] = {0.74, 0.9, 1.0};
  double beltBgr[3] = {0.38, 0.55, 0.78};
  for (int k = 0; k < 3; k++) rgb[k] = level * (zoneBgr[k] * (1.0 - belt) + beltBgr[k] * belt);
}

static double PixelShare(double centre, double sigma, int pixel) {
  double k = 1.0 / (sigma * std::sqrt(2.0));
  return 0.5 * (std::erf((pixel + 0.5 - centre) * k) - std::erf((pixel - 0.5 - centre) * k));
}

static void AddGaussian(std::vector<double>& light, int32_t width, int32_t height, double sx, double sy,
                        double sigma, double flux, const double colour[3]) {
  int reach = (int)std::ceil(4.5 * sigma) + 1;
  int xLo = (int)std::floor(sx) - reach, xHi = (int)std::floor(sx) + reach;
  int yLo = (int)std::floor(sy) - reach, yHi = (int)std::floor(sy) + reach;
  if (xHi < 0 || yHi < 0 || xLo >= width || yLo >= height) return;
  if (xLo < 0) xLo = 0;
  if (yLo < 0) yLo = 0;
  if (xHi >= width) xHi = width - 1;
  if (yHi >= height) yHi = height - 1;
  std::vector<double> column((size_t)(xHi - xLo + 1));
  for (int x = xLo; x <= xHi; x++) column[(size_t)(x - xLo)] = PixelShare(sx, sigma, x);
  for (int y = yLo; y <= yHi; y++) {
    double rowShare = flux * PixelShare(sy, sigma, y);
    double* p = &light[((size_t)y * width + xLo) * 3];
    for (int x = xLo; x <= xHi; x++, p += 3) {
      double v = rowShare * column[(size_t)(x - xLo)];
      p[0] += v * colour[0];
      p[1] += v * colour[1];
      p[2] += v * colour[2];
    }
  }
}

// Where a scene point lands in the view: invert the distortion by fixed-point
// iteration (its slope is far below 1), then turn and shift.
static void ScenePointToView(const Scene& scene, const ViewPose& pose, double qx, double qy, double& sx,
                             double& sy) {
  double gx = qx, gy = qy;
  for (int k = 0; k < 8; k++) {
    double dx, dy;
    DistortionAt(scene.params, pose.distortion, gx, gy, dx, dy);
    gx = qx - dx;
    gy = qy - dy;
  }
  double cx = scene.params.width / 2, cy = scene.params.height / 2;
  double angle = pose.angleDegrees * PI / 180.0;
  double c = std::cos(angle), s = std::sin(angle);
  double u = gx - cx, v = gy - cy;
  sx = cx + pose.shiftX + c * u - s * v;
  sy = cy + pose.shiftY + s * u + c * v;
}

static void AddStars(const Scene& scene, const ViewPose& pose, std::vector<double>& light) {
  for (const SceneStar& star : scene.stars) {
    double sx, sy;
    ScenePointToView(scene, pose, star.x, star.y, sx, sy);
    double colour[3] = {star.blue, star.green, star.red};
    AddGaussian(light, scene.params.width, scene.params.height, sx, sy, star.sigma, star.flux * 0.95, colour);
    // Faint wide halo, as scattered light around bright stars.
    AddGaussian(light, scene.params.width, scene.params.height, sx, sy, star.sigma * 3.5, star.flux * 0.05, colour);
  }
}

// Adds the smooth part of the scene, sampled at the scene point each pixel sees.
static void AddExtended(const Scene& scene, const ViewPose& pose, std::vector<double>& light) {
  int32_t width = scene.params.width, height = scene.params.height;
  double cx = width / 2, cy = height / 2;
  double angle = pose.angleDegrees * PI / 180.0;
  double c = std::cos(angle), s = std::sin(angle);
  bool planet = scene.params.kind == SCENE_PLANET;
  // The disc edge is sharp, so the planet gets 3 x 3 samples per pixel.
  int sub = planet ? 3 : 1;
  for (int32_t y = 0; y < height; y++) {
    for (int32_t x = 0; x < width; x++) {
      double sum[3] = {0.0, 0.0, 0.0};
      for (int j = 0; j < sub; j++) {
        for (int i = 0; i < sub; i++) {
          double px = x + (i + 0.5) / sub - 0.5 - cx - pose.shiftX;
          double py = y + (j + 0.5) / sub - 0.5 - cy - pose.shiftY;
          double gx = cx + c * px + s * py;
          double gy = cy - s * px + c * py;
          double dx, dy;
          DistortionAt(scene.params, pose.distortion, gx, gy, dx, dy);
          double rgb[3];
          if (planet)
            PlanetAt(scene, gx + dx, gy + dy, rgb);
          else
            NebulaAt(scene, gx + dx, gy + dy, rgb);
          for (int k = 0; k < 3; k++) sum[k] += rgb[k];
        }
      }
      double* p = &light[((size_t)y * width + x) * 3];
      for (int k = 0; k < 3; k++) p[k] += sum[k] / (sub * sub);
    }
  }
}

void RenderView(const Scene& scene, const ViewPose& pose, uint32_t noiseSeed, Image& out) {
  int32_t width = scene.params.width, height = scene.params.height;
  std::vector<double> light((size_t)width * height * 3, 0.0);
  if (scene.nebulaLevel > 0.0 || scene.params.kind == SCENE_PLANET) AddExtended(scene, pose, light);
  AddStars(scene, pose, light);

  out.pixels = AllocatePixels(width, height);
  out.width = width;
  out.height = height;
  out.x0 = width / 2;
  out.y0 = height / 2;
  uint64_t state = ((uint64_t)noiseSeed << 32) ^ UINT64_C(0x0015E5EED);
  const double skyTint[3] = {1.1, 1.0, 0.9};
  const double gain = 12.0;  // photons per grey level: sets the shot noise
  for (size_t i = 0; i < (size_t)width * height; i++) {
    for (int k = 0; k < 3; k++) {
      double signal = scene.skyLevel * skyTint[k] + light[i * 3 + k];
      double sigma = std::sqrt(scene.noiseSigma * scene.noiseSigma + signal / gain);
      double value = std::floor(signal + sigma * Gaussian(state) + 0.5);
      out.pixels[i * 4 + k] = (unsigned char)(value < 0.0 ? 0.0 : (value > 255.0 ? 255.0 : value));
    }
    out.pixels[i * 4 + 3] = 255;
  }
}

void RenderScene(const SceneParams& params, uint32_t seed, Image& out) {
  Scene scene;
  BuildScene(params, seed, scene);
  ViewPose pose = {0.0, 0, 0, 0.0};
  RenderView(scene, pose, MixSeed(seed, 0), out);
}

void RenderSource(const SceneParams& params, uint32_t seed, double angleDegrees, int32_t shiftX, int32_t shiftY,
                  double distortion, uint32_t noiseSeed, Image& out) {
  Scene scene;
  BuildScene(params, seed, scene);
  ViewPose pose = {angleDegrees, shiftX, shiftY, distortion};
  RenderView(scene, pose, noiseSeed, out);
}
