// One colour plane of the composite sum as a FITS file of 16-bit values.
#pragma once

#include <cstdint>

struct OutputFile;

// plane: 0 blue, 1 green, 2 red. Reads Accumulator, Reference's size and ImageCount.
void SaveFitsPlane(const char* path, int plane);

// One 80-character header card: keyword in columns 1-8, "=" in 9, the value
// right-aligned to column 30, blanks to 80.
void WriteIntCard(OutputFile& file, const char* keyword, int32_t value);
void WriteCharCard(OutputFile& file, const char* keyword, char value);
