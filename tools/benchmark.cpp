// Times whole frames (load, register, save) on the same BMP sequence along
// every path, each in a process of its own so that its peak memory is its
// own:
//   reference  the straightforward code, one thread
//   fast 1     the kernels this processor has, one thread
//   fast N     the same on every thread
//   floor      a plain read of each frame's file and a write of the same bytes
// and prints per configuration the median time per frame, the ratios and the
// peak resident memory of each mode.
//
//   build/kelvarion_bench [--frames N] [--size WxH] [--sequence DIR]
//                         [--no-reference] [--blocks]
//
// --sequence DIR takes DIR/reference.bmp and DIR/src1.bmp, src2.bmp, ...
// instead of a generated star field. --blocks times the block stage instead
// of the global stage ("Bloc 32 10 5 1" and "Bloc 32 10 2 0.5" after
// "Translation 30 1"), the block stage alone.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "blocks/blocks.h"
#include "image/image.h"
#include "register/kernels.h"
#include "register/register.h"
#include "run/run_state.h"
#include "run/settings.h"
#include "sample_scene.h"

#ifdef _OPENMP
#include <omp.h>
#endif

static const double DEGREE = 0.017453292522222223;

struct BenchConfig {
  const char* name;
  float angleDegrees;   // +- range of the rotation search; 0: translation search
  int32_t translation;  // largest shift
  int32_t gridWidth;    // 0: no block stage
  int32_t searchWidth;
  int32_t blockShift;
  float blockStep;
};

enum Mode { REFERENCE, FAST_ONE, FAST_ALL, FLOOR, MODES };
static const char* const MODE_NAMES[MODES] = {"reference", "fast 1", "fast N", "floor"};

struct ModeResult {
  double median;  // seconds per frame; negative when not run
  double peakMb;
};

static double Now() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + (double)t.tv_nsec * 1e-9;
}

static double Median(std::vector<double> values) {
  if (values.empty()) return -1;
  std::sort(values.begin(), values.end());
  size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
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

// The floor of one frame: the whole file read in one piece, the same bytes
// written in one piece.
static void ReadAndWrite(const std::string& from, const std::string& to) {
  FILE* in = fopen(from.c_str(), "rb");
  if (in == nullptr) return;
  fseeko(in, 0, SEEK_END);
  size_t size = (size_t)ftello(in);
  fseeko(in, 0, SEEK_SET);
  unsigned char* bytes = new unsigned char[size];
  size_t got = fread(bytes, 1, size, in);
  fclose(in);
  FILE* out = fopen(to.c_str(), "wb");
  if (out != nullptr) {
    if (fwrite(bytes, 1, got, out) != got) perror("write");
    fclose(out);
  }
  delete[] bytes;
}

// One frame along the program's road; returns the seconds it took (only the
// block stage when blocksOnly).
static double RunFrame(const std::string& source, const std::string& result, bool blocksOnly) {
  double start = Now();
  if (LoadImage(Current, source.c_str()) != 0) return -1;
  Current.x0 = Reference.x0;
  Current.y0 = Reference.y0;
  if (Settings.AngleMin == Settings.AngleMax)
    SearchTranslation();
  else
    SearchRotation();
  double middle = Now();
  if (Settings.GridWidth > 0) AdjustBlocks();
  double end = Now();
  SaveBmp(Current, result.c_str());
  ReleasePixels(Current);
  return blocksOnly ? end - middle : Now() - start;
}

// Runs every frame in the mode, in this (child) process; writes the times to fd.
static void RunMode(Mode mode, const BenchConfig& config, const std::string& dir, int frames,
                    bool blocksOnly, int fd) {
  if (freopen("/dev/null", "w", stdout) == nullptr) _exit(1);
  KeepLargeBuffers();  // as the program does
  if (mode == REFERENCE)
    ForceKernelLevel(KERNEL_REFERENCE);
  else
    SelectKernels();
#ifdef _OPENMP
  omp_set_num_threads(mode == FAST_ALL ? omp_get_num_procs() : 1);
#endif
  ApplyConfig(config);
  if (LoadImage(Reference, (dir + "/reference.bmp").c_str()) != 0) _exit(1);
  Reference.x0 = Reference.width / 2;
  Reference.y0 = Reference.height / 2;
  ShiftLog = fopen("/dev/null", "w");
  if (Settings.AngleMin == Settings.AngleMax) PrepareTranslationSearch();
  if (Settings.GridWidth > 0) PrepareBlockStage();
  std::vector<double> times;
  for (int i = 1; i <= frames; i++) {
    std::string source = dir + "/src" + std::to_string(i) + ".bmp";
    std::string result = dir + "/bench_out.bmp";
    double start = Now();
    double seconds = mode == FLOOR ? (ReadAndWrite(source, result), Now() - start)
                                   : RunFrame(source, result, blocksOnly);
    times.push_back(seconds);
  }
  double median = Median(times);
  if (write(fd, &median, sizeof median) != sizeof median) _exit(1);
  _exit(0);
}

static ModeResult Measure(Mode mode, const BenchConfig& config, const std::string& dir, int frames,
                          bool blocksOnly) {
  int pipeFds[2];
  ModeResult result = {-1, 0};
  if (pipe(pipeFds) != 0) return result;
  fflush(stdout);
  pid_t child = fork();
  if (child == 0) {
    close(pipeFds[0]);
    RunMode(mode, config, dir, frames, blocksOnly, pipeFds[1]);
  }
  close(pipeFds[1]);
  double median = -1;
  if (read(pipeFds[0], &median, sizeof median) != sizeof median) median = -1;
  close(pipeFds[0]);
  int status = 0;
  rusage usage;
  wait4(child, &status, 0, &usage);
  result.median = median;
  result.peakMb = usage.ru_maxrss / 1024.0;
  return result;
}

// A generated star field: reference.bmp and src1.bmp ... in a new directory.
static std::string GenerateSequence(int width, int height, int frames) {
  char pattern[] = "/tmp/kelvarion_bench_XXXXXX";
  if (mkdtemp(pattern) == nullptr) return "";
  std::string dir = pattern;
  const SceneParams params = {width, height, SCENE_STARS};
  fflush(stdout);
  int console = dup(1);
  FILE* quiet = freopen("/dev/null", "w", stdout);
  Image picture;
  RenderScene(params, 1, picture);
  SaveBmp(picture, (dir + "/reference.bmp").c_str());
  ReleasePixels(picture);
  for (int i = 1; i <= frames; i++) {
    RenderSource(params, 1, (i % 5 - 2) * 0.7, 3 * (i % 3 - 1), 2 - i % 4, 0.0, MixSeed(1, (uint32_t)i), picture);
    SaveBmp(picture, (dir + "/src" + std::to_string(i) + ".bmp").c_str());
    ReleasePixels(picture);
  }
  fflush(stdout);
  dup2(console, 1);
  close(console);
  if (quiet == nullptr) return "";
  return dir;
}

static void PrintRow(const BenchConfig& config, const ModeResult* results) {
  printf("%-40s", config.name);
  for (int m = 0; m < MODES; m++) {
    if (results[m].median < 0)
      printf("%11s", "-");
    else
      printf("%8.1f ms", results[m].median * 1000);
  }
  double fast = results[FAST_ALL].median;
  printf("  %7.1fx", results[REFERENCE].median > 0 ? results[REFERENCE].median / fast : NAN);
  printf("  %6.2fx", results[FLOOR].median > 0 ? fast / results[FLOOR].median : NAN);
  printf("   %5.0f %5.0f %5.0f MB\n", results[REFERENCE].peakMb, results[FAST_ONE].peakMb,
         results[FAST_ALL].peakMb);
  fflush(stdout);
}

int main(int argc, char** argv) {
  int frames = 5, width = 1280, height = 960;
  bool reference = true, blocks = false;
  std::string sequence;
  for (int i = 1; i < argc; i++) {
    std::string flag = argv[i];
    if (flag == "--frames" && i + 1 < argc) frames = std::max(1, atoi(argv[++i]));
    else if (flag == "--size" && i + 1 < argc && sscanf(argv[++i], "%dx%d", &width, &height) == 2) {}
    else if (flag == "--sequence" && i + 1 < argc) sequence = argv[++i];
    else if (flag == "--no-reference") reference = false;
    else if (flag == "--blocks") blocks = true;
    else {
      printf("usage: kelvarion_bench [--frames N] [--size WxH] [--sequence DIR] [--no-reference] [--blocks]\n");
      return flag == "--help" ? 0 : 2;
    }
  }
  std::string dir = sequence.empty() ? GenerateSequence(width, height, frames) : sequence;
  if (dir.empty()) return 1;
  const BenchConfig globals[] = {
      {"Angle -3 3 1, Translation 30 1", 3.0f, 30, 0, 0, 0, 1.0f},
      {"Translation 30 1", 0.0f, 30, 0, 0, 0, 1.0f},
  };
  const BenchConfig blockConfigs[] = {
      {"Translation 30 1 + Bloc 32 10 5 1", 0.0f, 30, 32, 10, 5, 1.0f},
      {"Translation 30 1 + Bloc 32 10 2 0.5", 0.0f, 30, 32, 10, 2, 0.5f},
  };
  printf("%s, %d frames; median %s per frame; peak memory of reference, fast 1, fast N\n",
         sequence.empty() ? (std::to_string(width) + " x " + std::to_string(height) + " stars").c_str()
                          : sequence.c_str(),
         frames, blocks ? "block stage" : "whole frame (load, register, save)");
  printf("%-40s%11s%11s%11s%11s  %8s  %7s   %s\n", "", MODE_NAMES[0], MODE_NAMES[1], MODE_NAMES[2],
         MODE_NAMES[3], "ref/N", "N/floor", "peak");
  for (const BenchConfig& config : blocks ? blockConfigs : globals) {
    ModeResult results[MODES];
    for (int m = 0; m < MODES; m++) {
      bool skip = (m == REFERENCE && !reference) || (m == FLOOR && blocks);
      results[m] = skip ? ModeResult{-1, 0} : Measure((Mode)m, config, dir, frames, blocks);
    }
    PrintRow(config, results);
  }
  std::string leftover = dir + "/bench_out.bmp";
  unlink(leftover.c_str());
  if (sequence.empty()) {
    for (int i = 1; i <= frames; i++) unlink((dir + "/src" + std::to_string(i) + ".bmp").c_str());
    unlink((dir + "/reference.bmp").c_str());
    rmdir(dir.c_str());
  }
  return 0;
}
