// The score of a rotated patch against a fixed picture, sampled and scored in
// one pass: no patch is materialised, and the rows are shared among threads.
// Each row is sampled exactly as RotatedPatch samples it into a small buffer
// and summed by the kernels in force; odd rows hold no data and are counted.
// The sums are exact integers, so the order in which threads add them does
// not matter, nor which rows a thread took.
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

#include "register/match_score.h"
#include "register/register.h"
#include "run/fatal_error.h"
#include "run/threads.h"


// Columns of the patch taken together. A turned row runs across many rows of
// the source; going down the patch one band of columns at a time keeps the
// source lines it reads in cache from one row to the next. The sums do not
// depend on the order.
static const int64_t BAND = 256;

// Sums of one band (columns first .. first + n - 1 of the overlap) of one
// sampled row of the patch against its row of fixed; n <= BAND.
static ScoreTotals BandTotals(const Image& source, const Image& fixed, const Image& patch,
                              const Overlap& overlap, float c, float s, int64_t r, int64_t first,
                              int64_t n, unsigned char* row) {
  ScoreTotals totals = {0, 0, 0};
  int64_t y = overlap.ay + r;
  Kernels.SampleRotatedRow(source, c, s, overlap.ax + first - patch.x0, y - patch.y0, n, row);
  const unsigned char* q = fixed.pixels + ((overlap.by + r) * fixed.width + overlap.bx + first) * 4;
  PairSums run;
  Kernels.SumPairs(row, q, n, &run);
  AddPairSums(totals, run);
  return totals;
}

// Below this many pairs S2 cannot pass 2^64 (585225^2 x 2^25 < 2^64), so the
// running sums shared by the threads fit 64-bit atomics.
static const uint64_t SHARED_SUM_PAIRS = UINT64_C(1) << 25;

double RotatedPatchScore(const Image& source, int32_t width, int32_t height, float theta,
                         const Image& fixed, double abandonAt) {
  Image patch = {nullptr, width, height, width / 2, height / 2};
  Overlap overlap;
  if (!FindOverlap(patch, fixed, overlap)) return (double)0.05f;
  float c = (float)cos((double)theta);
  float s = (float)sin((double)theta);
  uint64_t count = (uint64_t)overlap.columns * (uint64_t)overlap.rows;
  int threads = ThreadCount();
  int64_t rowBytes = BAND * 4;
  int64_t bands = (overlap.columns + BAND - 1) / BAND;
  unsigned char* rows = new (std::nothrow) unsigned char[(size_t)(rowBytes * threads)];
  ScoreTotals* partial = new (std::nothrow) ScoreTotals[(size_t)threads];
  if (rows == nullptr || partial == nullptr) OutOfMemory();
  for (int t = 0; t < threads; t++) partial[t] = ScoreTotals{0, 0, 0};

  // The odd rows hold no data: every pair there is empty.
  int64_t firstEven = overlap.ay % 2 == 0 ? 0 : 1;
  int64_t evenRows = (overlap.rows - firstEven + 1) / 2;
  uint64_t emptyRows = (uint64_t)(overlap.rows - evenRows);
  // With a limit, the sums are shared as they grow: each is at most its
  // final value, so the score they give is a lower bound, and once it
  // reaches the limit the rest need not be computed.
  bool shared = abandonAt < INFINITY && count < SHARED_SUM_PAIRS;
  std::atomic<uint64_t> s1(0), s2(0), empty(emptyRows * (uint64_t)overlap.columns);
  std::atomic<bool> abandoned(false);

#pragma omp parallel for schedule(dynamic, 8) num_threads(threads)
  for (int64_t k = 0; k < evenRows * bands; k++) {
    if (abandoned.load(std::memory_order_relaxed)) continue;
    int t = ThreadNumber();
    int64_t first = k / evenRows * BAND;
    int64_t n = overlap.columns - first < BAND ? overlap.columns - first : BAND;
    ScoreTotals row = BandTotals(source, fixed, patch, overlap, c, s, firstEven + 2 * (k % evenRows),
                                 first, n, rows + rowBytes * t);
    if (!shared) {
      partial[t].s1 += row.s1;
      partial[t].s2 += row.s2;
      partial[t].empty += row.empty;
      continue;
    }
    ScoreTotals seen = {s1.fetch_add(row.s1) + row.s1, s2.fetch_add((uint64_t)row.s2) + (uint64_t)row.s2,
                        empty.fetch_add(row.empty) + row.empty};
    if (ScoreFromTotals(seen, count) >= abandonAt) abandoned.store(true, std::memory_order_relaxed);
  }

  ScoreTotals totals = {s1.load(), s2.load(), empty.load()};
  for (int t = 0; t < threads; t++) {
    totals.s1 += partial[t].s1;
    totals.s2 += partial[t].s2;
    totals.empty += partial[t].empty;
  }
  delete[] rows;
  delete[] partial;
  if (abandoned.load()) return INFINITY;
  return ScoreFromTotals(totals, count);
}
