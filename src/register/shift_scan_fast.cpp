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

static const int64_t PIECE = 32;         // pixels in a piece of a row
static const int64_t SPARSE_PIECES = 16;  // pieces per candidate in the sparse pass
static const int SEED_CLIMBS = 16;         // steps of the climb from the best guess

// Pieces of PIECE pixels of the rows of the moving picture, in the order they
// are visited; rows without any data are left out of the pieces and counted.
struct Piece {
  int64_t row;
  int64_t first;
  int64_t end;
  uint64_t texture;
};

struct PiecePlan {
  Piece* pieces;         // most textured first
  int64_t count;
  int64_t* emptyBefore;  // [r]: rows without data among rows 0 .. r - 1
};

template <typename T>
static T* AllocateArray(int64_t count) {
  T* values = new (std::nothrow) T[(size_t)(count > 0 ? count : 1)];
  if (values == nullptr) OutOfMemory();
  return values;
}

// Spread of the piece's colours around their mean, weighted as in v: where
// the picture varies most, a wrong placement costs most.
static uint64_t Texture(const unsigned char* p, int64_t n, bool& hasData) {
  int64_t count = 0, sum[3] = {0, 0, 0}, squares[3] = {0, 0, 0};
  for (int64_t x = 0; x < n; x++, p += 4) {
    if (p[3] == 0) continue;
    hasData = true;
    count++;
    for (int c = 0; c < 3; c++) {
      sum[c] += p[c];
      squares[c] += (int64_t)p[c] * p[c];
    }
  }
  if (count == 0) return 0;
  int64_t spread[3];
  for (int c = 0; c < 3; c++) spread[c] = squares[c] * count - sum[c] * sum[c];
  return (uint64_t)((spread[0] + 4 * (spread[1] + spread[2])) / count);
}

static PiecePlan PlanPieces(const Image& moving) {
  int64_t height = moving.height > 0 ? moving.height : 0;
  int64_t width = moving.width > 0 ? moving.width : 0;
  int64_t perRow = (width + PIECE - 1) / PIECE;
  PiecePlan plan = {AllocateArray<Piece>(height * perRow), 0, AllocateArray<int64_t>(height + 1)};
  plan.emptyBefore[0] = 0;
  for (int64_t y = 0; y < height; y++) {
    bool hasData = false;
    int64_t start = plan.count;
    for (int64_t first = 0; first < width; first += PIECE) {
      int64_t end = first + PIECE < width ? first + PIECE : width;
      const unsigned char* p = moving.pixels + (y * width + first) * 4;
      plan.pieces[plan.count++] = Piece{y, first, end, Texture(p, end - first, hasData)};
    }
    if (!hasData) plan.count = start;
    plan.emptyBefore[y + 1] = plan.emptyBefore[y] + (hasData ? 0 : 1);
  }
  std::stable_sort(plan.pieces, plan.pieces + plan.count,
                   [](const Piece& a, const Piece& b) { return a.texture > b.texture; });
  return plan;
}

static void ReleasePlan(PiecePlan& plan) {
  delete[] plan.pieces;
  delete[] plan.emptyBefore;
}

// Adds the pairs of one piece, clipped to the overlap, to totals; returns
// how many (0 when the piece lies outside it).
static int64_t SumPiece(const Image& a, const Image& b, const Overlap& overlap, const Piece& piece,
                     ScoreTotals& totals) {
  int64_t r = piece.row - overlap.ay;
  if (r < 0 || r >= overlap.rows) return 0;
  int64_t first = piece.first > overlap.ax ? piece.first : overlap.ax;
  int64_t end = overlap.ax + overlap.columns;
  if (piece.end < end) end = piece.end;
  if (first >= end) return 0;
  const unsigned char* p = a.pixels + (piece.row * a.width + first) * 4;
  const unsigned char* q = b.pixels + ((overlap.by + r) * b.width + first - overlap.ax + overlap.bx) * 4;
  PairSums run;
  Kernels.SumPairs(p, q, end - first, &run);
  AddPairSums(totals, run);
  return end - first;
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
static double ScoreWithBound(const Image& moving, const Image& fixed, const PiecePlan& plan,
                             int64_t dx, int64_t dy, std::atomic<double>& lowest) {
  Image placed = Placed(moving, dx, dy);
  Overlap overlap;
  if (!FindOverlap(placed, fixed, overlap)) return NO_OVERLAP_SCORE;
  uint64_t count = (uint64_t)overlap.columns * (uint64_t)overlap.rows;
  int64_t emptyRows = plan.emptyBefore[overlap.ay + overlap.rows] - plan.emptyBefore[overlap.ay];
  ScoreTotals totals = {0, 0, (uint64_t)emptyRows * (uint64_t)overlap.columns};
  BoundTest test = MakeBoundTest(AbandonBound(lowest.load(std::memory_order_relaxed)), count);
  for (int64_t k = 0; k < plan.count; k++) {
    if (SumPiece(placed, fixed, overlap, plan.pieces[k], totals) == 0) continue;
    if (ReachesBound(totals, test)) return ABANDONED_SCORE;
  }
  double score = ScoreFromTotals(totals, count);
  LowerTo(lowest, score);
  return score;
}

// Mean cost per pair over the first few visited pieces: only a guess at
// which candidate is good, never used as a score.
static double SparseEstimate(const Image& moving, const Image& fixed, const PiecePlan& plan,
                             int64_t dx, int64_t dy) {
  Image placed = Placed(moving, dx, dy);
  Overlap overlap;
  if (!FindOverlap(placed, fixed, overlap)) return INFINITY;
  ScoreTotals totals = {0, 0, 0};
  int64_t walked = 0;
  uint64_t pairs = 0;
  for (int64_t k = 0; k < plan.count && walked < SPARSE_PIECES; k++) {
    int64_t added = SumPiece(placed, fixed, overlap, plan.pieces[k], totals);
    pairs += (uint64_t)added;
    walked += added > 0 ? 1 : 0;
  }
  if (pairs == 0) return INFINITY;
  return ScoreFromTotals(totals, pairs);
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
                       const PiecePlan& plan, ShiftCandidate* chunk, int64_t& seedDx,
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
  PiecePlan plan = PlanPieces(moving);
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

// One candidate of a search over several moving pictures.
struct SeedPlace {
  int64_t picture;
  int64_t dx;
  int64_t dy;
};

void SeedScanMemory(const Image* movings, int64_t count, const Image& fixed, const ShiftGrid& grid,
                    ScanMemory& memory) {
  if (count <= 0) return;
  PiecePlan* plans = AllocateArray<PiecePlan>(count);
  for (int64_t i = 0; i < count; i++) plans[i] = PlanPieces(movings[i]);
  ShiftCandidate* chunk = AllocateArray<ShiftCandidate>(CHUNK);

  // Sparse guesses on every second shift of each picture (still shifts of
  // the grid), the lowest first in scan order.
  ShiftGrid sparse = grid;
  sparse.step = grid.step * 2;
  SeedPlace guess = {-1, 0, 0};
  double guessed = INFINITY;
  for (int64_t i = 0; i < count; i++) {
    GridWalk walk = StartWalk(movings[i], fixed, sparse);
    for (int64_t n = FillChunk(walk, chunk); n > 0; n = FillChunk(walk, chunk)) {
#pragma omp parallel for schedule(dynamic, 8)
      for (int64_t k = 0; k < n; k++)
        chunk[k].score = chunk[k].score < 0
                             ? SparseEstimate(movings[i], fixed, plans[i], chunk[k].dx, chunk[k].dy)
                             : INFINITY;
      for (int64_t k = 0; k < n; k++) {
        if (!(chunk[k].score < guessed)) continue;
        guessed = chunk[k].score;
        guess = SeedPlace{i, chunk[k].dx, chunk[k].dy};
      }
    }
  }

  // From the guess, complete candidates and climb to a neighbour (a shift of
  // the grid away, or the next picture) while one is lower. Every completed
  // score is that of a candidate of the search, so it may bound the rest.
  std::atomic<double> lowest(memory.lowest);
  if (guess.picture >= 0 && OnGrid(grid, guess.dx, guess.dy)) {
    SeedPlace at = guess;
    double score = ScoreWithBound(movings[at.picture], fixed, plans[at.picture], at.dx, at.dy, lowest);
    for (int climb = 0; climb < SEED_CLIMBS; climb++) {
      const SeedPlace around[10] = {
          {at.picture, at.dx - grid.step, at.dy}, {at.picture, at.dx + grid.step, at.dy},
          {at.picture, at.dx, at.dy - grid.step}, {at.picture, at.dx, at.dy + grid.step},
          {at.picture, at.dx - grid.step, at.dy - grid.step}, {at.picture, at.dx + grid.step, at.dy + grid.step},
          {at.picture, at.dx - grid.step, at.dy + grid.step}, {at.picture, at.dx + grid.step, at.dy - grid.step},
          {at.picture - 1, at.dx, at.dy}, {at.picture + 1, at.dx, at.dy}};
      SeedPlace next = at;
      double nextScore = score;
      for (const SeedPlace& place : around) {
        if (place.picture < 0 || place.picture >= count || !OnGrid(grid, place.dx, place.dy)) continue;
        double candidate = ScoreWithBound(movings[place.picture], fixed, plans[place.picture], place.dx,
                                          place.dy, lowest);
        if (!(candidate < nextScore)) continue;
        next = place;
        nextScore = candidate;
      }
      if (!(nextScore < score)) break;
      at = next;
      score = nextScore;
    }
    memory.seeded = true;
    memory.seedDx = at.dx;
    memory.seedDy = at.dy;
  }
  memory.lowest = lowest.load();
  delete[] chunk;
  for (int64_t i = 0; i < count; i++) ReleasePlan(plans[i]);
  delete[] plans;
}
