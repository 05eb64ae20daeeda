// Sequences written by the sample generator, run by kelvarion, and read back.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "image/image.h"
#include "run_process.h"

// One line of truth.txt after the image number: the pose of the source against the reference.
struct TruePose {
  double angleDegrees;
  int dx;
  int dy;
};

inline std::vector<TruePose> ReadTruth(const std::string& path) {
  std::vector<TruePose> poses;
  std::istringstream lines(ReadWholeFile(path));
  TruePose p = {0.0, 0, 0};
  for (std::string line; std::getline(lines, line);)
    if (line[0] != '#' && sscanf(line.c_str(), "%*d %lf %d %d", &p.angleDegrees, &p.dx, &p.dy) == 3)
      poses.push_back(p);
  return poses;
}

// One line of shift.lst; wellFormed when it is exactly "%i %i " plus an optional "  Non optimal" and "\n".
struct ShiftLine {
  bool wellFormed;
  int dx;
  int dy;
  bool nonOptimal;
  std::string text;
  bool Matches(const TruePose& t) const {
    return wellFormed && std::abs(dx - t.dx) <= 1 && std::abs(dy - t.dy) <= 1;
  }
};

inline std::vector<ShiftLine> ReadShiftLog(const std::string& path) {
  std::vector<ShiftLine> log;
  std::string bytes = ReadWholeFile(path);
  for (size_t start = 0, end = 0; start < bytes.size(); start = end + 1) {
    end = std::min(bytes.find('\n', start), bytes.size());
    ShiftLine l = {false, 0, 0, false, bytes.substr(start, end - start)};
    bool read = sscanf(l.text.c_str(), "%d %d", &l.dx, &l.dy) == 2;
    l.nonOptimal = l.text.find("Non optimal") != std::string::npos;
    std::string canonical = std::to_string(l.dx) + " " + std::to_string(l.dy) + " ";
    l.wellFormed = read && end < bytes.size() && l.text == canonical + (l.nonOptimal ? "  Non optimal" : "");
    log.push_back(l);
  }
  return log;
}

// A generated sequence in a directory of its own, and what kelvarion made of it.
struct Sample {
  std::string path = MakeTempDirectory();
  ProcessResult run = {"", -1, 0};
  std::vector<TruePose> truth;
  std::vector<ShiftLine> log;
  ~Sample() { RemoveDirectory(path); }
  std::string File(const std::string& name) const { return path + "/" + name; }
  bool Generate(const std::string& options) const {
    std::vector<std::string> args = {"--out", ".", "--width", "240", "--height", "180"};
    std::istringstream words(options);
    for (std::string word; words >> word;) args.push_back(word);
    return RunProgram(KELVARION_SAMPLE, args, path).exitCode == 0 && FileExists(File("truth.txt"));
  }
  // Runs `script` (the generated one when empty) and reads back the truth and shift.lst; the exit status.
  int Run(const std::string& script = "") {
    if (!script.empty()) WriteWholeFile(File("run.txt"), script);
    run = RunKelvarionIn(path, {script.empty() ? "script.txt" : "run.txt"});
    truth = ReadTruth(File("truth.txt"));
    log = ReadShiftLog(File("shift.lst"));
    return run.exitCode;
  }
};

// A BMP file read with the program's own reader.
struct LoadedPicture {
  Image image = {nullptr, 0, 0, 0, 0};
  bool loaded = false;
  explicit LoadedPicture(const std::string& path) { loaded = LoadImage(image, path.c_str()) == 0; }
  ~LoadedPicture() { ReleasePixels(image); }
  LoadedPicture(const LoadedPicture&) = delete;
  LoadedPicture& operator=(const LoadedPicture&) = delete;
  // Byte c (0 blue, 1 green, 2 red) of pixel (x, y).
  int At(int x, int y, int c) const { return image.pixels[((size_t)y * image.width + x) * 4 + c]; }
};
