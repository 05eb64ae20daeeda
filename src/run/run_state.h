// The records that live for the whole run and that the stages work on.
#pragma once

#include <cstdio>

#include "image/image.h"

extern Image Reference;  // loaded once; x0, y0 set by the run driver
extern Image Current;    // the source picture being processed
extern Image Composite;  // the final mean
extern FILE* ShiftLog;   // "shift.lst", open from before the first image to after the last

// Processor time used so far, in whole seconds (fraction dropped).
unsigned int ProcessorSeconds();
