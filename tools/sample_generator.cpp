// Writes a synthetic sequence to register: a reference, N turned and shifted
// sources, the script that registers them and the true answer for each.
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "image/image.h"
#include "image/output_file.h"
#include "sample_scene.h"

struct GeneratorOptions {
  std::string outDir = "sample";
  int count = 8;
  int width = 640;
  int height = 480;
  uint32_t seed = 1;
  double maxAngle = 2.0;
  int maxShift = 2;
  double distortion = 0.0;
  SceneKind kind = SCENE_STARS;
  double angleRange = -1.0;  // negative: follow maxAngle
  int translation = 10;
  std::string blocks;  // "G S M STEP", empty for no block stage
  bool composite = true;
};

struct SourceTruth {
  double angleDegrees;
  int32_t dx;
  int32_t dy;
};

static void PrintUsage() {
  printf(
      "usage: kelvarion_sample [options]\n"
      "  --out DIR            output directory (sample)\n"
      "  --count N            number of sources (8)\n"
      "  --width W --height H picture size (640 x 480)\n"
      "  --seed S             scene, pose and noise seed (1)\n"
      "  --max-angle DEG      source angles drawn in +-DEG, 0.1 degree steps (2)\n"
      "  --max-shift P        whole-pixel shifts drawn in +-P (2)\n"
      "  --distortion A       smooth local distortion amplitude in pixels (0)\n"
      "  --scene stars|planet scene kind (stars)\n"
      "  --angle-range DEG    script line \"Angle -DEG DEG 1\"; 0 gives \"Angle 0 0 1\" (max-angle)\n"
      "  --translation T      script line \"Translation T 1\" (10)\n"
      "  --blocks \"G S M STEP\" adds the script line \"Bloc G S M STEP\"\n"
      "  --no-composite       leave out the \"Compositage composite.bmp\" line\n");
}

static bool ParseInt(const char* text, long low, long high, int& value) {
  char* end = nullptr;
  errno = 0;
  long v = strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || v < low || v > high) return false;
  value = (int)v;
  return true;
}

static bool ParseDouble(const char* text, double low, double high, double& value) {
  char* end = nullptr;
  errno = 0;
  double v = strtod(text, &end);
  if (errno != 0 || end == text || *end != '\0' || !(v >= low && v <= high)) return false;
  value = v;
  return true;
}

static bool ValidBlocks(const std::string& text) {
  int fields = 0;
  const char* p = text.c_str();
  while (*p != '\0') {
    while (*p == ' ') p++;
    if (*p == '\0') break;
    char* end = nullptr;
    strtod(p, &end);
    if (end == p || (*end != ' ' && *end != '\0')) return false;
    fields++;
    p = end;
  }
  return fields == 4;
}

// Returns false (after a message) on any option it cannot take.
static bool ParseOptions(int argc, char** argv, GeneratorOptions& options, bool& help) {
  help = false;
  for (int i = 1; i < argc; i++) {
    std::string flag = argv[i];
    if (flag == "--help" || flag == "-h") {
      help = true;
      return true;
    }
    if (flag == "--no-composite") {
      options.composite = false;
      continue;
    }
    if (i + 1 >= argc) {
      fprintf(stderr, "kelvarion_sample: %s needs a value\n", flag.c_str());
      return false;
    }
    const char* value = argv[++i];
    bool ok = true;
    int seed = 0;
    if (flag == "--out") {
      options.outDir = value;
      ok = !options.outDir.empty();
    } else if (flag == "--count") {
      ok = ParseInt(value, 1, 29999, options.count);
    } else if (flag == "--width") {
      ok = ParseInt(value, 16, 20000, options.width);
    } else if (flag == "--height") {
      ok = ParseInt(value, 16, 20000, options.height);
    } else if (flag == "--seed") {
      ok = ParseInt(value, 0, 2147483647, seed);
      options.seed = (uint32_t)seed;
    } else if (flag == "--max-angle") {
      ok = ParseDouble(value, 0.0, 45.0, options.maxAngle);
    } else if (flag == "--max-shift") {
      ok = ParseInt(value, 0, 1000, options.maxShift);
    } else if (flag == "--distortion") {
      ok = ParseDouble(value, 0.0, 50.0, options.distortion);
    } else if (flag == "--scene") {
      std::string kind = value;
      ok = kind == "stars" || kind == "planet";
      options.kind = kind == "planet" ? SCENE_PLANET : SCENE_STARS;
    } else if (flag == "--angle-range") {
      ok = ParseDouble(value, 0.0, 90.0, options.angleRange);
    } else if (flag == "--translation") {
      ok = ParseInt(value, 0, 10000, options.translation);
    } else if (flag == "--blocks") {
      options.blocks = value;
      ok = ValidBlocks(options.blocks);
    } else {
      fprintf(stderr, "kelvarion_sample: unknown option %s\n", flag.c_str());
      return false;
    }
    if (!ok) {
      fprintf(stderr, "kelvarion_sample: bad value \"%s\" for %s\n", value, flag.c_str());
      return false;
    }
  }
  if (options.angleRange < 0.0) options.angleRange = options.maxAngle;
  return true;
}

static std::vector<SourceTruth> DrawPoses(const GeneratorOptions& options) {
  uint64_t state = ((uint64_t)MixSeed(options.seed, 0x905E) << 32) | options.seed;
  std::vector<SourceTruth> poses;
  for (int i = 0; i < options.count; i++) {
    SourceTruth truth;
    double angle = (2.0 * SampleUniform(state) - 1.0) * options.maxAngle;
    truth.angleDegrees = std::round(angle * 10.0) / 10.0;
    if (std::fabs(truth.angleDegrees) > options.maxAngle) truth.angleDegrees = std::trunc(angle * 10.0) / 10.0;
    if (truth.angleDegrees == 0.0) truth.angleDegrees = 0.0;  // no "-0.0" in the truth file
    int span = 2 * options.maxShift + 1;
    truth.dx = (int32_t)(NextSampleRandom(state) % (uint32_t)span) - options.maxShift;
    truth.dy = (int32_t)(NextSampleRandom(state) % (uint32_t)span) - options.maxShift;
    poses.push_back(truth);
  }
  return poses;
}

static bool WriteText(const std::string& path, const std::string& text) {
  FILE* file = fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  bool ok = fwrite(text.data(), 1, text.size(), file) == text.size();
  return fclose(file) == 0 && ok;
}

static std::string Format(const char* format, double a, double b = 0.0) {
  char buffer[128];
  snprintf(buffer, sizeof buffer, format, a, b);
  return buffer;
}

// Convention of truth.txt: for source i the registration must report the angle
// theta (degrees here) and the shift (dx, dy) such that the registered pixel at
// offset (u, v) from the reference centre (width / 2, height / 2), y downward,
// takes the source at sx = x0 + dx + C*u - S*v, sy = y0 + dy + S*u + C*v, with
// C = cos theta, S = sin theta and (x0, y0) the same centre in the source.
// With a distortion amplitude A, the source point found that way shows the
// scene at reference position (x, y) moved by
// (A sin(2 pi y / height), A sin(2 pi x / width)); that column is only written
// when A > 0.
static bool WriteTruth(const std::string& path, const GeneratorOptions& options,
                       const std::vector<SourceTruth>& poses) {
  std::string text = options.distortion > 0.0 ? "# index angle_degrees dx dy distortion_amplitude\n"
                                              : "# index angle_degrees dx dy\n";
  text += "# centre " + Format("%g %g", options.width / 2, options.height / 2) +
          ", angle and shift as reported for src<index>.bmp against reference.bmp\n";
  for (size_t i = 0; i < poses.size(); i++) {
    char line[128];
    snprintf(line, sizeof line, "%zu %.1f %d %d", i + 1, poses[i].angleDegrees, poses[i].dx, poses[i].dy);
    text += line;
    if (options.distortion > 0.0) text += Format(" %g", options.distortion);
    text += "\n";
  }
  return WriteText(path, text);
}

static bool WriteScript(const std::string& path, const GeneratorOptions& options) {
  std::string text = "Rem sample sequence: " + std::to_string(options.count) + " sources, see truth.txt\n";
  text += "Reference reference.bmp\n";
  text += "Sourcesbmp src res 1 " + std::to_string(options.count) + "\n";
  if (options.angleRange > 0.0)
    text += "Angle " + Format("%g %g 1\n", -options.angleRange, options.angleRange);
  else
    text += "Angle 0 0 1\n";
  text += "Translation " + std::to_string(options.translation) + " 1\n";
  if (!options.blocks.empty()) text += "Bloc " + options.blocks + "\n";
  if (options.composite) text += "Compositage composite.bmp\n";
  // The command word needs a blank after it to be recognised.
  text += "Quitter \n";
  return WriteText(path, text);
}

static bool SaveView(const Image& image, const std::string& path) {
  int failuresBefore = WriteFailureCount;
  SaveBmp(image, path.c_str());
  return WriteFailureCount == failuresBefore;
}

int main(int argc, char** argv) {
  GeneratorOptions options;
  bool help = false;
  if (!ParseOptions(argc, argv, options, help)) {
    PrintUsage();
    return 2;
  }
  if (help) {
    PrintUsage();
    return 0;
  }
  std::error_code error;
  std::filesystem::create_directories(options.outDir, error);
  if (error) {
    fprintf(stderr, "kelvarion_sample: cannot create %s: %s\n", options.outDir.c_str(), error.message().c_str());
    return 1;
  }
  SceneParams params = {options.width, options.height, options.kind};
  Scene scene;
  BuildScene(params, options.seed, scene);
  std::vector<SourceTruth> poses = DrawPoses(options);
  const std::string dir = options.outDir + "/";

  Image image;
  RenderScene(params, options.seed, image);
  bool ok = SaveView(image, dir + "reference.bmp");
  ReleasePixels(image);
  for (int i = 0; i < options.count && ok; i++) {
    ViewPose pose = {poses[(size_t)i].angleDegrees, poses[(size_t)i].dx, poses[(size_t)i].dy, options.distortion};
    RenderView(scene, pose, MixSeed(options.seed, (uint32_t)i + 1), image);
    ok = SaveView(image, dir + "src" + std::to_string(i + 1) + ".bmp");
    ReleasePixels(image);
  }
  ok = ok && WriteScript(dir + "script.txt", options) && WriteTruth(dir + "truth.txt", options, poses);
  if (!ok) {
    fprintf(stderr, "kelvarion_sample: could not write every file in %s\n", options.outDir.c_str());
    return 1;
  }
  printf("Wrote %s: reference.bmp, src1.bmp..src%d.bmp (%dx%d, %s scene, seed %u), script.txt, truth.txt\n",
         options.outDir.c_str(), options.count, options.width, options.height,
         options.kind == SCENE_PLANET ? "planet" : "stars", options.seed);
  printf("Run it from inside the directory: cd %s && kelvarion script.txt\n", options.outDir.c_str());
  return 0;
}
