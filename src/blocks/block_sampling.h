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

// Whether the settings give the block searches any trial at all: a range whose
// minimum passes its maximum, a negative search width or a step that is not
// positive leave the offset (0, 0) and the score NO_MATCH_SCORE.
bool BlockSearchHasTrials();

// A patch of side 2 SearchWidth + 1; the caller releases its pixels.
Image NewBlockPatch();

// Reference's record with its point at (0, 0), so placements are computed
// relative to it in 64 bits and never overflow x0.
Image ReferenceAtOrigin();

// Copies the square of Current whose top left corner is (left, top) into the
// patch (side patch.width); pixels outside Current are empty.
void CopyPatch(Image& patch, int64_t left, int64_t top);

// Advances a whole-number offset: the step is added as a float and the sum
// truncated. false when the loop is over: past max, or when the float sum no
// longer moves the offset (|offset| beyond 2^24, or a step below 1).
bool NextWholeOffset(int64_t& offset, float step, int64_t max);
