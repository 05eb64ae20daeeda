// Pixel fetches and placements shared by the block searches and the deformation.
#pragma once

#include <cstdint>

#include "image/image.h"

// Writes the four bytes of source around whole position (x, y) with weights
// (wx, wy) in (-1, 1): empty left of column 0; blended where (x + 1, y + 1)
// exists, each blend truncated to a 16-bit integer whose low 8 bits are kept;
// copied in the last column and row; empty (all bytes 0) elsewhere.
void FetchBlended(const Image& source, int64_t x, int64_t y, double wx, double wy,
                  unsigned char* out);

// x0 (or y0) that places a patch whose first column (row) lies over column
// `start` of a picture whose point is 0. Placements where nothing overlaps are
// clamped, which keeps the value in 32 bits and leaves the score unchanged.
int32_t PatchPoint(int64_t start, int64_t side, int64_t extent);
