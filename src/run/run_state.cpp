#include "run/run_state.h"

#include <ctime>

Image Reference;
Image Current;
Image Composite;
FILE* ShiftLog;

// The processor clock counts 1000000 ticks per second; with threads it counts
// all of them.
unsigned int ProcessorSeconds() {
  return (unsigned int)(clock() / 1000000);
}
