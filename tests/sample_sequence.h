// Sequences written by the sample generator, run by kelvarion, and read back.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "image/image.h"
#include "run_process.h"

// A pose against the reference: a line of truth.txt, or of shift.lst with the theta printed for it, if any. A
// shift.lst line is well formed when it is exactly "%i %i " plus an optional "  Non optimal" and "\n".
struct Pose {
  double angle = 0.0;
  int dx = 0, dy = 0;
  std::string text;
  bool nonOptimal = false, wellFormed = false;
  bool Near(const Pose& t) const { return wellFormed && std::abs(dx - t.dx) < 2 && std::abs(dy - t.dy) < 2; }
};

// A generated sequence in a directory of its own, and what kelvarion made of it.
struct Sample {
  std::string path = MakeTempDirectory();
  ProcessResult run = {};
  std::vector<Pose> truth, log;
  ~Sample() { RemoveDirectory(path); }
  std::string File(const std::string& name) const { return path + "/" + name; }
  // Writes a 240 x 180 sequence with the generator's `options`.
  bool Generate(const std::string& options) const {
    std::string generator = "'" + std::string(KELVARION_SAMPLE) + "' --out . --width 240 --height 180 ";
    return RunProgram("/bin/sh", {"-c", generator + options}, path).exitCode == 0;
  }
  // Runs script.txt (replaced first by `script` if any), reads truth.txt and shift.lst; the exit status.
  int Run(const std::string& script = "") {
    if (!script.empty()) WriteWholeFile(File("script.txt"), script);
    run = RunKelvarionIn(path, {"script.txt"});
    std::istringstream truthLines(ReadWholeFile(File("truth.txt")));
    std::istringstream logLines(ReadWholeFile(File("shift.lst")));
    for (Pose p; std::getline(truthLines, p.text);)
      if (sscanf(p.text.c_str(), "%*d %lf %d %d", &p.angle, &p.dx, &p.dy) == 3) truth.push_back(p);
    size_t theta = 0;  // where the search for the next "theta=" on the console starts
    for (Pose p; std::getline(logLines, p.text);) {
      theta = run.output.find("\ntheta=", theta);
      p.angle = theta == std::string::npos ? 0.0 : std::atof(run.output.c_str() + (theta += 7));
      sscanf(p.text.c_str(), "%d %d", &p.dx, &p.dy);  // a line it cannot read differs from its own rewriting
      p.nonOptimal = p.text.ends_with("  Non optimal");
      p.wellFormed = !logLines.eof() && p.text == std::to_string(p.dx) + " " + std::to_string(p.dy) + " " +
                                                      (p.nonOptimal ? "  Non optimal" : "");
      log.push_back(p);
    }
    return run.exitCode;
  }
};

// The colour bytes of a BMP file read with the program's own reader, blue first, top row first; none when it
// cannot be opened.
inline std::vector<int> ReadPicture(const std::string& path) {
  Image image = {nullptr, 0, 0, 0, 0};
  std::vector<int> colours;
  int bytes = LoadImage(image, path.c_str()) == 0 ? image.width * image.height * 4 : 0;
  for (int p = 0; p < bytes; p++)
    if (p % 4 < 3) colours.push_back(image.pixels[p]);
  ReleasePixels(image);
  return colours;
}
