// Captures what the code under test prints on standard output.
#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

struct ConsoleCapture {
  int savedDescriptor;
  FILE* file;
};

inline ConsoleCapture BeginCapture() {
  fflush(stdout);
  ConsoleCapture capture;
  capture.file = tmpfile();
  capture.savedDescriptor = dup(fileno(stdout));
  dup2(fileno(capture.file), fileno(stdout));
  return capture;
}

// Restores standard output and returns every byte printed since BeginCapture.
inline std::string EndCapture(ConsoleCapture& capture) {
  fflush(stdout);
  dup2(capture.savedDescriptor, fileno(stdout));
  close(capture.savedDescriptor);
  std::string text;
  rewind(capture.file);
  char buffer[4096];
  size_t count;
  while ((count = fread(buffer, 1, sizeof buffer, capture.file)) > 0) text.append(buffer, count);
  fclose(capture.file);
  return text;
}
