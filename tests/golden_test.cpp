// Golden outputs: sample jobs whose every output file and console (time
// numbers masked) must keep the bytes that were recorded from the
// straightforward code, on every kernel level, with one and two threads, and
// through the program itself.
//
// To record a table again from a given binary (only ever for a deliberate
// change of output): KELVARION_GOLDEN_RECORD=/path/to/kelvarion prints it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <dirent.h>
#include <map>
#include <string>
#include <vector>

#include "register/kernels.h"
#include "run_process.h"
#include "sha256.h"

namespace {

// A 24-bit picture in memory, rows top-down, 3 bytes (blue, green, red) a pixel.
struct Bgr {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<unsigned char> bytes;
};

uint32_t Le32(const std::string& s, size_t at) {
  return (uint32_t)(unsigned char)s[at] | (uint32_t)(unsigned char)s[at + 1] << 8 |
         (uint32_t)(unsigned char)s[at + 2] << 16 | (uint32_t)(unsigned char)s[at + 3] << 24;
}

// The generator writes bottom-up 24-bit files with a 54-byte header.
Bgr ReadBgr(const std::string& path) {
  std::string file = ReadWholeFile(path);
  Bgr picture;
  if (file.size() < 54) return picture;
  picture.width = (int32_t)Le32(file, 18);
  picture.height = (int32_t)Le32(file, 22);
  size_t stride = ((size_t)picture.width * 3 + 3) / 4 * 4;
  for (int32_t y = picture.height - 1; y >= 0; y--)
    picture.bytes.insert(picture.bytes.end(), file.begin() + Le32(file, 10) + y * stride,
                         file.begin() + Le32(file, 10) + y * stride + picture.width * 3);
  return picture;
}

void Put(std::string& out, uint32_t value, int bytes) {
  for (int i = 0; i < bytes; i++) out += (char)(value >> (8 * i));
}

// 24 bits, or 8 bits through a grey palette; bottom-up, or top-down.
void WriteBgr(const std::string& path, const Bgr& picture, int bits, bool topDown) {
  size_t stride = ((size_t)picture.width * bits / 8 + 3) / 4 * 4;
  uint32_t palette = bits == 8 ? 1024 : 0;
  std::string out = "BM";
  Put(out, (uint32_t)(54 + palette + stride * picture.height), 4);
  Put(out, 0, 4);
  Put(out, 54 + palette, 4);
  Put(out, 40, 4);
  Put(out, (uint32_t)picture.width, 4);
  Put(out, (uint32_t)(topDown ? -picture.height : picture.height), 4);
  Put(out, 1, 2);
  Put(out, (uint32_t)bits, 2);
  Put(out, 0, 4);
  Put(out, (uint32_t)(stride * picture.height), 4);
  Put(out, 2835, 4);
  Put(out, 2835, 4);
  Put(out, bits == 8 ? 256 : 0, 4);
  Put(out, 0, 4);
  for (uint32_t i = 0; bits == 8 && i < 256; i++) Put(out, i * 0x010101u, 4);
  for (int32_t r = 0; r < picture.height; r++) {
    int32_t y = topDown ? r : picture.height - 1 - r;
    std::string row;
    for (int32_t x = 0; x < picture.width; x++) {
      const unsigned char* p = &picture.bytes[((size_t)y * picture.width + x) * 3];
      if (bits == 8) row += (char)((p[0] + p[1] + p[2]) / 3);
      else row.append((const char*)p, 3);
    }
    row.resize(stride, '\0');
    out += row;
  }
  WriteWholeFile(path, out);
}

Bgr Column(const Bgr& picture, int32_t x) {
  Bgr column;
  column.width = 1;
  column.height = picture.height;
  for (int32_t y = 0; y < picture.height; y++)
    column.bytes.insert(column.bytes.end(), &picture.bytes[((size_t)y * picture.width + x) * 3],
                        &picture.bytes[((size_t)y * picture.width + x) * 3] + 3);
  return column;
}

void EightBitAndTopDown(const std::string& dir) {
  WriteBgr(dir + "/src1.bmp", ReadBgr(dir + "/src1.bmp"), 8, false);
  WriteBgr(dir + "/src2.bmp", ReadBgr(dir + "/src2.bmp"), 24, true);
}

void WidthOne(const std::string& dir) {
  for (const char* name : {"/reference.bmp", "/src1.bmp", "/src2.bmp"})
    WriteBgr(dir + name, Column(ReadBgr(dir + name), 30), 24, false);
}

struct GoldenJob {
  const char* name;
  std::vector<std::string> generator;  // kelvarion_sample options
  const char* script;                  // replaces the generated script when not null
  void (*prepare)(const std::string& dir);
};

const GoldenJob JOBS[] = {
    {"turned, fractional blocks, composite",
     {"--width", "160", "--height", "120", "--count", "3", "--angle-range", "3", "--translation", "6",
      "--blocks", "16 4 2 0.5"}, nullptr, nullptr},
    {"planet, fixed angle, whole-step blocks",
     {"--scene", "planet", "--width", "160", "--height", "120", "--count", "3", "--max-shift", "4",
      "--angle-range", "0", "--translation", "12", "--blocks", "16 4 3 1"}, nullptr, nullptr},
    {"8-bit and top-down sources",
     {"--width", "96", "--height", "64", "--count", "2", "--angle-range", "0", "--translation", "6",
      "--blocks", "12 3 2 1"}, nullptr, EightBitAndTopDown},
    {"101 x 75",
     {"--width", "101", "--height", "75", "--count", "2", "--translation", "5", "--blocks",
      "10 3 2 0.25"}, nullptr, nullptr},
    {"width 1", {"--width", "64", "--height", "48", "--count", "2"}, nullptr, WidthOne},
    {"centres in the script",
     {"--width", "128", "--height", "96", "--count", "2"},
     "Reference reference.bmp 60 50\nSource src1.bmp res1.bmp 62 47\nSource src2.bmp res2.bmp\n"
     "Angle -2 2 1\nTranslation 8 1\nBloc 12 3 2 1\nCompositage composite.bmp\nQuitter \n",
     nullptr},
    {"distortion, quarter-pixel blocks",
     {"--width", "128", "--height", "96", "--count", "2", "--distortion", "2", "--angle-range", "0",
      "--translation", "6", "--blocks", "12 3 2 0.25"}, nullptr, nullptr},
    {"planet turned, shifts on the edge of the range",
     {"--scene", "planet", "--width", "140", "--height", "100", "--count", "3", "--max-shift", "6",
      "--angle-range", "2", "--translation", "3"}, nullptr, nullptr},
};

std::string MakeJob(const GoldenJob& job) {
  std::string dir = MakeTempDirectory();
  if (dir.empty()) return dir;
  std::vector<std::string> args = {"--out", dir};
  args.insert(args.end(), job.generator.begin(), job.generator.end());
  if (RunProgram(KELVARION_SAMPLE, args, dir).exitCode != 0) return "";
  if (job.script != nullptr) WriteWholeFile(dir + "/script.txt", job.script);
  if (job.prepare != nullptr) job.prepare(dir);
  return dir;
}

std::vector<std::string> Files(const std::string& dir) {
  std::vector<std::string> names;
  DIR* listing = opendir(dir.c_str());
  for (dirent* entry; listing != nullptr && (entry = readdir(listing)) != nullptr;)
    if (entry->d_name[0] != '.') names.push_back(entry->d_name);
  if (listing != nullptr) closedir(listing);
  std::sort(names.begin(), names.end());
  return names;
}

// Runs the job in a fresh copy of its inputs; returns "name digest" lines of
// the files it wrote and of the console.
std::string Digests(const std::string& inputs, const std::string& program,
                    const std::vector<std::string>& args) {
  std::string dir = MakeTempDirectory();
  if (dir.empty()) return "no temporary directory";
  std::vector<std::string> before = Files(inputs);
  for (const std::string& name : before) WriteWholeFile(dir + "/" + name, ReadWholeFile(inputs + "/" + name));
  ProcessResult run = RunProgram(program, args, dir);
  std::string lines = "console " + Sha256(MaskTimes(run.output)) + "\n";
  lines += "exit " + std::to_string(run.exitCode) + "\n";
  for (const std::string& name : Files(dir))
    if (std::find(before.begin(), before.end(), name) == before.end())
      lines += name + " " + Sha256(ReadWholeFile(dir + "/" + name)) + "\n";
  RemoveDirectory(dir);
  return lines;
}

#include "golden_digests.inc"

TEST(Golden, Sha256KnownAnswers) {
  EXPECT_EQ(Sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Sha256(std::string(1000, 'a')).substr(0, 16), "41edece42d63e8d9");
}

TEST(Golden, EveryPathWritesTheRecordedBytes) {
  const char* record = getenv("KELVARION_GOLDEN_RECORD");
  ASSERT_EQ(sizeof(JOBS) / sizeof(JOBS[0]), sizeof(GOLDEN_DIGESTS) / sizeof(GOLDEN_DIGESTS[0]));
  for (size_t j = 0; j < sizeof(JOBS) / sizeof(JOBS[0]); j++) {
    std::string inputs = MakeJob(JOBS[j]);
    ASSERT_FALSE(inputs.empty()) << JOBS[j].name << ": inputs not made";
    if (record != nullptr) {
      printf("    // %s\n    R\"(%s)\",\n", JOBS[j].name, Digests(inputs, record, {"script.txt"}).c_str());
      RemoveDirectory(inputs);
      continue;
    }
    EXPECT_EQ(Digests(inputs, KELVARION_BINARY, {"script.txt"}), GOLDEN_DIGESTS[j])
        << JOBS[j].name << ", the program on the processor's best path";
    for (int level = KERNEL_REFERENCE; level <= KERNEL_AVX2; level++)
      for (int threads = 1; threads <= 2 && KernelLevelAvailable(level); threads++)
        EXPECT_EQ(Digests(inputs, KELVARION_FORCED,
                          {std::to_string(level), std::to_string(threads), "script.txt"}),
                  GOLDEN_DIGESTS[j])
            << JOBS[j].name << ", level " << level << ", " << threads << " thread(s)";
    RemoveDirectory(inputs);
  }
}

}  // namespace
