// Times the registration stages on a generated 1280 x 960 sequence: per-frame
// wall time of the global stage and of the block stage, median over the frames.
//
//   build/kelvarion_bench [frames]     (default 5)
//
// Console output of the stages goes to /dev/null while they are timed.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>
#include <vector>

#include "blocks/blocks.h"
#include "image/image.h"
#include "register/register.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "sample_scene.h"

static const double DEGREE = 0.017453292522222223;

struct BenchConfig {
  const char* name;
  float angleDegrees;      // +-range of the rotation search, 0: translation search
  int32_t translation;     // maximum shift
  int32_t gridWidth;       // 0: no block stage timed
  int32_t searchWidth;
  int32_t blockShift;
  float blockStep;
};

static double Now() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + (double)t.tv_nsec * 1e-9;
}

static void ApplyConfig(const BenchConfig& config) {
  Settings = SettingsRecord{};
  Settings.AngleMin = (float)(-(double)config.angleDegrees * DEGREE);
  Settings.AngleMax = (float)((double)config.angleDegrees * DEGREE);
  Settings.AngleResolution = (float)(1.0 * DEGREE);
  Settings.ShiftMinX = Settings.ShiftMinY = -config.translation;
  Settings.ShiftMaxX = Settings.ShiftMaxY = config.translation;
  Settings.ShiftStep = 1;
  Settings.TranslationFraction = 6;
  Settings.GridWidth = config.gridWidth;
  Settings.SearchWidth = config.searchWidth;
  Settings.BlockShiftMinX = Settings.BlockShiftMinY = -config.blockShift;
  Settings.BlockShiftMaxX = Settings.BlockShiftMaxY = config.blockShift;
  Settings.BlockShiftStep = config.blockStep;
}

static double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Runs one configuration over every frame; returns the medians of the global
// and block stages in seconds.
static void RunConfig(const BenchConfig& config, const SceneParams& params, int frames,
                      double& globalMedian, double& blockMedian) {
  ApplyConfig(config);
  std::vector<double> global, block;
  int console = dup(1);
  FILE* quiet = freopen("/dev/null", "w", stdout);
  for (int i = 1; i <= frames && quiet != nullptr; i++) {
    RenderSource(params, 1, (i % 5 - 2) * 0.5, i % 3 - 1, 1 - i % 2, 0.0, MixSeed(1, (uint32_t)i), Current);
    Current.x0 = Reference.x0;
    Current.y0 = Reference.y0;
    double start = Now();
    if (Settings.AngleMin == Settings.AngleMax)
      SearchTranslation();
    else
      SearchRotation();
    double middle = Now();
    if (Settings.GridWidth > 0) AdjustBlocks();
    double end = Now();
    global.push_back(middle - start);
    block.push_back(end - middle);
    ReleasePixels(Current);
  }
  fflush(stdout);
  dup2(console, 1);
  close(console);
  globalMedian = Median(global);
  blockMedian = Median(block);
}

int main(int argc, char** argv) {
  int frames = argc > 1 ? atoi(argv[1]) : 5;
  if (frames < 1) frames = 1;
  const SceneParams params = {1280, 960, SCENE_STARS};
  RenderScene(params, 1, Reference);
  ShiftLog = fopen("/dev/null", "w");
  const BenchConfig configs[] = {
      {"Translation 30 1 (translation search)", 0.0f, 30, 0, 0, 0, 1.0f},
      {"Angle -3 3 1, Translation 20 1", 3.0f, 20, 0, 0, 0, 1.0f},
      {"Translation 30 1 + Bloc 32 10 5 1", 0.0f, 30, 32, 10, 5, 1.0f},
      {"Translation 30 1 + Bloc 32 10 2 0.5", 0.0f, 30, 32, 10, 2, 0.5f},
  };
  printf("1280 x 960, %d frames, median wall time per frame\n", frames);
  for (const BenchConfig& config : configs) {
    double global = 0, block = 0;
    RunConfig(config, params, frames, global, block);
    if (config.gridWidth > 0)
      printf("%-42s block stage  %8.3f s\n", config.name, block);
    else
      printf("%-42s global stage %8.3f s\n", config.name, global);
    fflush(stdout);
  }
  fclose(ShiftLog);
  ReleasePixels(Reference);
  return 0;
}
