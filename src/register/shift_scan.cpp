#include "register/shift_scan.h"

#include "register/kernels.h"
#include "register/overlap_range.h"
#include "register/register.h"
#include "register/selection_rule.h"

static const double TO_SCORE = -1.0;

ScanMemory NewScanMemory() { return ScanMemory{INFINITY, false, 0, 0}; }

GridWalk StartWalk(const Image& moving, const Image& fixed, const ShiftGrid& grid) {
  ShiftInterval columns = OverlapShifts(moving.x0, moving.width, fixed.x0, fixed.width);
  ShiftInterval rows = OverlapShifts(moving.y0, moving.height, fixed.y0, fixed.height);
  return GridWalk{grid, columns.lo, columns.hi, rows.lo, rows.hi, grid.minX, grid.minY, false};
}

// A column of shifts that misses fixed is one candidate at 0.05 (the first of
// the run); so is each run of rows that misses it within a column.
bool NextCandidate(GridWalk& walk, ShiftCandidate& candidate) {
  const ShiftGrid& grid = walk.grid;
  ShiftInterval columns = {walk.columnsLo, walk.columnsHi};
  ShiftInterval rows = {walk.rowsLo, walk.rowsHi};
  while (true) {
    if (!walk.inColumn) {
      if (walk.dx > grid.maxX) return false;
      if (!InInterval(columns, walk.dx)) {
        int64_t dx = walk.dx;
        walk.dx = NextInInterval(walk.dx, grid.step, columns);
        if (grid.minY > grid.maxY) continue;
        candidate = ShiftCandidate{dx, grid.minY, NO_OVERLAP_SCORE};
        return true;
      }
      walk.inColumn = true;
      walk.dy = grid.minY;
    }
    if (walk.dy > grid.maxY) {
      walk.inColumn = false;
      walk.dx += grid.step;
      continue;
    }
    if (!InInterval(rows, walk.dy)) {
      candidate = ShiftCandidate{walk.dx, walk.dy, NO_OVERLAP_SCORE};
      walk.dy = NextInInterval(walk.dy, grid.step, rows);
      return true;
    }
    candidate = ShiftCandidate{walk.dx, walk.dy, TO_SCORE};
    walk.dy += grid.step;
    return true;
  }
}

void ScanShiftsReference(const Image& moving, const Image& fixed, const ShiftGrid& grid,
                         ShiftWinner& best) {
  GridWalk walk = StartWalk(moving, fixed, grid);
  ShiftCandidate candidate;
  best.moved = false;
  while (NextCandidate(walk, candidate)) {
    double score = candidate.score;
    if (score < 0) {
      Image placed = moving;
      placed.x0 = (int32_t)(moving.x0 + candidate.dx);
      placed.y0 = (int32_t)(moving.y0 + candidate.dy);
      score = MatchScore(placed, fixed);
    }
    if (!TakeIfBetter(best.score, score)) continue;
    best.dx = candidate.dx;
    best.dy = candidate.dy;
    best.moved = true;
  }
}

void ScanShifts(const Image& moving, const Image& fixed, const ShiftGrid& grid, ShiftWinner& best,
                ScanMemory& memory) {
  if (Kernels.level == KERNEL_REFERENCE)
    ScanShiftsReference(moving, fixed, grid, best);
  else
    ScanShiftsFast(moving, fixed, grid, best, memory);
}
