// The fast shift scan: the same winner as the straightforward scan (see
// selection_rule.h for why), with a small share of the pairs.
//
// - Rows of the moving picture without any data (the odd rows of a rotated
//   patch) give only empty pairs: they are counted, not walked.
// - The other rows are visited most textured first, and a candidate is
//   abandoned as soon as its partial score reaches the bound that the lowest
//   completed score of the search sets. Every term of the score is
//   non-negative and ScoreFromTotals is monotone, so the partial score never
//   exceeds the complete one.
// - Before the scan a candidate likely to be good is completed, to set that
//   bound early: the previous winner of the search, or else the best of a
//   sparse pass over a few textured rows.
// - Candidates are scored in chunks shared among threads; each chunk is then
//   replayed in scan order under the selection rule, so the winner does not
//   depend on which thread finished first, nor on the bound each one saw.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <new>

#include "register/match_score.h"
#include "register/overlap_range.h"
#include "register/selection_rule.h"
#include "register/shift_scan.h"
#include "run/fatal_error.h"

static const int64_t CHUNK = 2048;
static const int64_t SPARSE_ROWS = 4;  // rows per candidate in the sparse pass

// The rows of the moving picture in the order they are visited.
struct RowPlan {
  int64_t* order;        // rows holding data, most textured first
  int64_t count;
  int64_t* emptyBefore;  // [r]: rows without data among rows 0 .. r - 1
};

template <typename T>
static T* AllocateArray(int64_t count) {
  T* values = new (std::nothrow) T[(size_t)(count > 0 ? count : 1)];
  if (values == nullptr) {
    OutOfMemory();
  }
  return values;
}

// Sum of v between horizontal neighbours that both hold data: where the row
// has detail, a wrong placement costs most.
static uint64_t RowTexture(const unsigned char* row, int64_t width, bool& hasData) {
  uint64_t texture = 0;
  hasData = false;
  for (int64_t x = 0; x < width; x++) {
    const unsigned char* p = row + x * 4;
    if (p[3] != 0) hasData = true;
    if (x + 1 == width || p[3] == 0 || p[7] == 0) continue;
    int64_t db = (int64_t)p[4] - p[0];
    int64_t dg = (int64_t)p[5] - p[1];
    int64_t dr = (int64_t)p[6] - p[2];
    texture += (uint64_t)(db * db + 4 * (dg * dg + dr * dr));
  }
  return texture;
}

static RowPlan PlanRows(const Image& moving) {
  int64_t height = moving.height > 0 ? moving.height : 0;
  RowPlan plan = {AllocateArray<int64_t>(height), 0, AllocateArray<int64_t>(height + 1)};
  uint64_t* texture = AllocateArray<uint64_t>(height);
  plan.emptyBefore[0] = 0;
  for (int64_t y = 0; y < height; y++) {
    bool hasData = false;
    texture[y] = RowTexture(moving.pixels + y * (int64_t)moving.width * 4, moving.width, hasData);
    plan.emptyBefore[y + 1] = plan.emptyBefore[y] + (hasData ? 0 : 1);
    if (hasData) plan.order[plan.count++] = y;
  }
  std::stable_sort(plan.order, plan.order + plan.count,
                   [texture](int64_t a, int64_t b) { return texture[a] > texture[b]; });
  delete[] texture;
  return plan;
}

static void ReleasePlan(RowPlan& plan) {
  delete[] plan.order;
  delete[] plan.emptyBefore;
}

static void LowerTo(std::atomic<double>& lowest, double score) {
  double seen = lowest.load(std::memory_order_relaxed);
  while (score < seen && !lowest.compare_exchange_weak(seen, score, std::memory_order_relaxed)) {
  }
}

static Image Placed(const Image& moving, int64_t dx, int64_t dy) {
  Image placed = moving;
  placed.x0 = (int32_t)(moving.x0 + dx);
  placed.y0 = (int32_t)(moving.y0 + dy);
  return placed;
}

// The candidate's score, or ABANDONED_SCORE once it provably cannot win. A
// completed score lowers the shared bound.
static double ScoreWithBound(const Image& moving, const Image& fixed, const RowPlan& plan,
                             int64_t dx, int64_t dy, std::atomic<double>& lowest) {
  Image placed = Placed(moving, dx, dy);
  Overlap overlap;
  if (!FindOverlap(placed, fixed, overlap)) return NO_OVERLAP_SCORE;
  uint64_t count = (uint64_t)overlap.columns * (uint64_t)overlap.rows;
  int64_t emptyRows = plan.emptyBefore[overlap.ay + overlap.rows] - plan.emptyBefore[overlap.ay];
  ScoreTotals totals = {0, 0, (uint64_t)emptyRows * (uint64_t)overlap.columns};
  float bound = AbandonBound(lowest.load(std::memory_order_relaxed));
  for (int64_t k = 0; k < plan.count; k++) {
    int64_t r = plan.order[k] - overlap.ay;
    if (r < 0 || r >= overlap.rows) continue;
    SumRow(placed, fixed, overlap, r, Kernels.SumPairs, totals);
    if (ScoreFromTotals(totals, count) >= bound) return ABANDONED_SCORE;
  }
  double score = ScoreFromTotals(totals, count);
  LowerTo(lowest, score);
  return score;
}

// Mean cost per pair over the first few visited rows: only a guess at which
// candidate is good, never used as a score.
static double SparseEstimate(const Image& moving, const Image& fixed, const RowPlan& plan,
                             int64_t dx, int64_t dy) {
  Image placed = Placed(moving, dx, dy);
  Overlap overlap;
  if (!FindOverlap(placed, fixed, overlap)) return INFINITY;
  ScoreTotals totals = {0, 0, 0};
  int64_t walked = 0;
  for (int64_t k = 0; k < plan.count && walked < SPARSE_ROWS; k++) {
    int64_t r = plan.order[k] - overlap.ay;
    if (r < 0 || r >= overlap.rows) continue;
    SumRow(placed, fixed, overlap, r, Kernels.SumPairs, totals);
    walked++;
  }
  if (walked == 0) return INFINITY;
  return ScoreFromTotals(totals, (uint64_t)walked * (uint64_t)overlap.columns);
}

static bool OnGrid(const ShiftGrid& grid, int64_t dx, int64_t dy) {
  return dx >= grid.minX && dx <= grid.maxX && dy >= grid.minY && dy <= grid.maxY &&
         (dx - grid.minX) % grid.step == 0 && (dy - grid.minY) % grid.step == 0;
}

// Fills chunk with the next candidates in scan order; returns how many.
static int64_t FillChunk(GridWalk& walk, ShiftCandidate* chunk) {
  int64_t n = 0;
  while (n < CHUNK && NextCandidate(walk, chunk[n])) n++;
  return n;
}

// The candidate of the whole grid whose sparse estimate is lowest (first in
// scan order on ties); false when no candidate overlaps.
static bool SparseSeed(const Image& moving, const Image& fixed, const ShiftGrid& grid,
                       const RowPlan& plan, ShiftCandidate* chunk, int64_t& seedDx,
                       int64_t& seedDy) {
  GridWalk walk = StartWalk(moving, fixed, grid);
  double bestEstimate = INFINITY;
  bool found = false;
  for (int64_t n = FillChunk(walk, chunk); n > 0; n = FillChunk(walk, chunk)) {
#pragma omp parallel for schedule(dynamic, 8)
    for (int64_t i = 0; i < n; i++)
      chunk[i].score = chunk[i].score < 0
                           ? SparseEstimate(moving, fixed, plan, chunk[i].dx, chunk[i].dy)
                           : INFINITY;
    for (int64_t i = 0; i < n; i++) {
      if (!(chunk[i].score < bestEstimate)) continue;
      bestEstimate = chunk[i].score;
      seedDx = chunk[i].dx;
      seedDy = chunk[i].dy;
      found = true;
    }
  }
  return found;
}

void ScanShiftsFast(const Image& moving, const Image& fixed, const ShiftGrid& grid,
                    ShiftWinner& best, ScanMemory& memory) {
  best.moved = false;
  RowPlan plan = PlanRows(moving);
  ShiftCandidate* chunk = AllocateArray<ShiftCandidate>(CHUNK);
  std::atomic<double> lowest(memory.lowest);

  int64_t seedDx = memory.seedDx;
  int64_t seedDy = memory.seedDy;
  bool seeded = memory.seeded && OnGrid(grid, seedDx, seedDy);
  if (!seeded) seeded = SparseSeed(moving, fixed, grid, plan, chunk, seedDx, seedDy);
  if (seeded) ScoreWithBound(moving, fixed, plan, seedDx, seedDy, lowest);

  GridWalk walk = StartWalk(moving, fixed, grid);
  for (int64_t n = FillChunk(walk, chunk); n > 0; n = FillChunk(walk, chunk)) {
    for (int64_t i = 0; i < n; i++)
      if (chunk[i].score >= 0) LowerTo(lowest, chunk[i].score);
#pragma omp parallel for schedule(dynamic, 4)
    for (int64_t i = 0; i < n; i++)
      if (chunk[i].score < 0)
        chunk[i].score = ScoreWithBound(moving, fixed, plan, chunk[i].dx, chunk[i].dy, lowest);
    for (int64_t i = 0; i < n; i++) {
      if (!TakeIfBetter(best.score, chunk[i].score)) continue;
      best.dx = chunk[i].dx;
      best.dy = chunk[i].dy;
      best.moved = true;
    }
  }

  memory.lowest = lowest.load();
  if (best.moved || memory.seeded) {
    memory.seeded = true;
    memory.seedDx = best.dx;
    memory.seedDy = best.dy;
  }
  delete[] chunk;
  ReleasePlan(plan);
}
