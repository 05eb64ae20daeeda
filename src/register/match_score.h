// The pieces of the match score that the searches share: where two placed
// pictures overlap, the exact sums of one row, and the score of the sums.
#pragma once

#include <cstdint>

#include "image/image.h"
#include "register/kernels.h"

__extension__ typedef unsigned __int128 Uint128;

struct ScoreTotals {
  uint64_t s1;
  Uint128 s2;
  uint64_t empty;
};

// The intersection of a and b under MatchScore's pairing: row r of it is
// row ay + r of a from column ax, and row by + r of b from column bx.
struct Overlap {
  int64_t ax, ay, bx, by;
  int64_t columns, rows;
};

// false when nothing overlaps (the score is then 0.05).
bool FindOverlap(const Image& a, const Image& b, Overlap& overlap);

// Adds the pairs of overlap row r, summed by kernel, to totals.
void SumRow(const Image& a, const Image& b, const Overlap& overlap, int64_t r,
            PairSumsKernel kernel, ScoreTotals& totals);

void AddPairSums(ScoreTotals& totals, const PairSums& run);

// The score of count pairs whose sums are totals, exactly as MatchScore forms it.
double ScoreFromTotals(const ScoreTotals& totals, uint64_t count);

// Whether the partial score of totals over count pairs reaches bound. The
// exact score costs a division: it is only formed once a cheap estimate,
// the numerator against bound x count, comes within a hair of the bound
// (both are within a few units in the last place of the exact values, far
// inside the margin), so the answer is always the exact one.
struct BoundTest {
  float bound;
  double near;  // bound x count, less the margin
  uint64_t count;
};

BoundTest MakeBoundTest(float bound, uint64_t count);

inline bool ReachesBound(const ScoreTotals& totals, const BoundTest& test) {
  double estimate = (double)(uint64_t)totals.s2 * (double)(1.0f / 255.0f) + (double)totals.s1 +
                    (double)totals.empty * (double)(0.5f * 0.01f);
  return estimate >= test.near && ScoreFromTotals(totals, test.count) >= test.bound;
}
