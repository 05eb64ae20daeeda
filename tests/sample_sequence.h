// Synthetic sequences for the end-to-end tests: written by the sample
// generator into a fresh directory, run by the kelvarion program there, and
// read back (the true poses, the shift log, the pictures).
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "image/image.h"
#include "run_process.h"

// A directory of its own for one sequence, removed with everything in it.
struct SampleDirectory {
  std::string path;
  SampleDirectory() : path(MakeTempDirectory()) {}
  ~SampleDirectory() { RemoveDirectory(path); }
  SampleDirectory(const SampleDirectory&) = delete;
  SampleDirectory& operator=(const SampleDirectory&) = delete;
  std::string File(const std::string& name) const { return path + "/" + name; }
};

// Runs the sample generator with its output in `directory`; true when it
// wrote every file.
inline bool GenerateSample(const std::string& directory, const std::vector<std::string>& options) {
  std::vector<std::string> args = {"--out", "."};
  args.insert(args.end(), options.begin(), options.end());
  ProcessResult result = RunProgram(KELVARION_SAMPLE, args, directory);
  return result.exitCode == 0 && FileExists(directory + "/truth.txt");
}

// One line of truth.txt: source `index` is turned by `angleDegrees` and
// shifted by (dx, dy) against the reference, as the registration must report.
struct TruePose {
  int index;
  double angleDegrees;
  int dx;
  int dy;
};

inline std::vector<TruePose> ReadTruth(const std::string& path) {
  std::vector<TruePose> poses;
  std::istringstream lines(ReadWholeFile(path));
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty() || line[0] == '#') continue;
    TruePose pose = {0, 0.0, 0, 0};
    if (sscanf(line.c_str(), "%d %lf %d %d", &pose.index, &pose.angleDegrees, &pose.dx, &pose.dy) == 4)
      poses.push_back(pose);
  }
  return poses;
}

// One line of shift.lst. wellFormed is false unless the whole line is
// "%i %i " optionally followed by "  Non optimal".
struct ShiftLine {
  bool wellFormed;
  int dx;
  int dy;
  bool nonOptimal;
  std::string text;
};

// Reads an optional minus sign and at least one digit at text[at]; advances at.
inline bool ReadInteger(const std::string& text, size_t& at, int& value) {
  size_t start = at;
  if (at < text.size() && text[at] == '-') at++;
  size_t digits = at;
  while (at < text.size() && text[at] >= '0' && text[at] <= '9') at++;
  if (at == digits || at - digits > 9) return false;
  value = std::stoi(text.substr(start, at - start));
  return true;
}

// True when text holds `literal` at position at; advances past it.
inline bool ReadLiteral(const std::string& text, size_t& at, const std::string& literal) {
  if (text.compare(at, literal.size(), literal) != 0) return false;
  at += literal.size();
  return true;
}

inline std::vector<ShiftLine> ReadShiftLog(const std::string& path) {
  std::vector<ShiftLine> log;
  std::string bytes = ReadWholeFile(path);
  size_t start = 0;
  while (start < bytes.size()) {
    size_t end = bytes.find('\n', start);
    // A last line without its line end is kept, and marked as not well formed.
    bool ended = end != std::string::npos;
    if (!ended) end = bytes.size();
    ShiftLine line = {false, 0, 0, false, bytes.substr(start, end - start)};
    size_t at = 0;
    if (ended && ReadInteger(line.text, at, line.dx) && ReadLiteral(line.text, at, " ") &&
        ReadInteger(line.text, at, line.dy) && ReadLiteral(line.text, at, " ")) {
      line.nonOptimal = ReadLiteral(line.text, at, "  Non optimal");
      line.wellFormed = at == line.text.size();
    }
    log.push_back(line);
    start = end + 1;
  }
  return log;
}

// A BMP file read with the program's own reader; released on scope exit.
struct LoadedPicture {
  Image image = {nullptr, 0, 0, 0, 0};
  bool loaded = false;
  explicit LoadedPicture(const std::string& path) { loaded = LoadImage(image, path.c_str()) == 0; }
  ~LoadedPicture() {
    if (loaded) ReleasePixels(image);
  }
  LoadedPicture(const LoadedPicture&) = delete;
  LoadedPicture& operator=(const LoadedPicture&) = delete;
  // Byte c (0 blue, 1 green, 2 red) of pixel (x, y).
  int At(int x, int y, int c) const { return image.pixels[((size_t)y * image.width + x) * 4 + c]; }
};

// The console text of one image, from its separator up to (not including) the
// next image's separator or the end of the loop. Empty when absent.
inline std::string ImageSection(const std::string& console, int index, int count) {
  const std::string separator = "\n**************************************************\n";
  std::string header = separator + "Traitement de l'image " + std::to_string(index) + " (";
  size_t start = console.find(header);
  if (start == std::string::npos) return "";
  size_t end = index < count ? console.find(separator, start + 1) : console.find("Sauvegarde de l'image compositee");
  if (end == std::string::npos) end = console.find("\nTemps pour l'ensemble du calcul", start);
  if (end == std::string::npos) end = console.size();
  return console.substr(start, end - start);
}
