// The scan of every whole-pixel shift of a moving picture against a fixed one,
// shared by the rotation search and the coarse translation search.
#pragma once

#include <cstdint>

#include "image/image.h"

// dx from minX while dx <= maxX (outer loop), dy from minY while dy <= maxY
// (inner loop), both by step >= 1.
struct ShiftGrid {
  int64_t minX, maxX, minY, maxY, step;
};

// The best so far under the selection rule; moved is set when a candidate of
// the last scan won.
struct ShiftWinner {
  float score;
  int64_t dx;
  int64_t dy;
  bool moved;
};

// What the fast scans carry from one call to the next within a search: the
// lowest score completed so far (any candidate's), which bounds the rest.
struct ScanMemory {
  double lowest;
  bool seeded;      // a previous call left a winning shift worth trying first
  int64_t seedDx;
  int64_t seedDy;
};

ScanMemory NewScanMemory();

// Scores moving, its reference point moved by each shift of grid, against
// fixed, in order, and updates best under the selection rule. Placements that
// do not meet fixed score 0.05; once the first of an unbroken run of them has
// been taken the rest of the run is passed over (it cannot win). The kernel
// level in force picks the straightforward scan or the fast one; both leave
// the same best.
void ScanShifts(const Image& moving, const Image& fixed, const ShiftGrid& grid, ShiftWinner& best,
                ScanMemory& memory);

// The straightforward scan: every candidate scored in full, in order.
void ScanShiftsReference(const Image& moving, const Image& fixed, const ShiftGrid& grid,
                         ShiftWinner& best);

// Pruned and threaded; defined in shift_scan_fast.cpp.
void ScanShiftsFast(const Image& moving, const Image& fixed, const ShiftGrid& grid,
                    ShiftWinner& best, ScanMemory& memory);

// For a search over several moving pictures (the angles of the rotation
// search) against fixed, with the same grid: completes a few candidates likely
// to be near the best of them all, so that the scans that follow start with a
// low bound. Only speed depends on it; the scans find the same winner.
void SeedScanMemory(const Image* movings, int64_t count, const Image& fixed, const ShiftGrid& grid,
                    ScanMemory& memory);

// One candidate in scan order: a shift and, for a placement without overlap,
// its fixed score (a negative value means "to be scored").
struct ShiftCandidate {
  int64_t dx;
  int64_t dy;
  double score;
};

// Walks the grid in scan order, passing over runs without overlap.
struct GridWalk {
  ShiftGrid grid;
  int64_t columnsLo, columnsHi;  // shifts whose placement meets fixed, per axis
  int64_t rowsLo, rowsHi;
  int64_t dx;
  int64_t dy;
  bool inColumn;
};

GridWalk StartWalk(const Image& moving, const Image& fixed, const ShiftGrid& grid);
bool NextCandidate(GridWalk& walk, ShiftCandidate& candidate);
