// One colour plane of the composite sum as a FITS file of 16-bit values.
#pragma once

#include <cstdint>

// plane: 0 blue, 1 green, 2 red. Reads Accumulator, Reference's size and ImageCount.
void SaveFitsPlane(const char* path, int plane);
