// Match score, the reference kernel.
//
// Every pair of non-empty pixels gives v = db^2 + 4 (dg^2 + dr^2), 0..585225;
// the score is (S2 k + S1 + nE e) / count with S1 = sum v, S2 = sum v^2, nE the
// pairs with an empty pixel. The sums are kept exactly in integers so any
// order of the pairs gives the same bits: v^2 < 2^39, so S2 lives in 128 bits
// (a picture of 2^25 pairs already passes 2^64); S1 < 2^20 per pair fits 64
// bits for any picture that fits in memory.
#include "register/match_score.h"

#include <cstdint>

#include "register/kernels.h"
#include "register/register.h"

static const double SCORE_K = (double)(1.0f / 255.0f);    // k, a 32-bit float
static const double EMPTY_PAIR = (double)(0.5f * 0.01f);  // 32-bit product
static const double NO_OVERLAP = (double)0.05f;

void SumPairsReference(const unsigned char* p, const unsigned char* q, int64_t n, PairSums* sums) {
  uint64_t s1 = 0;
  uint64_t s2 = 0;
  uint64_t empty = 0;
  for (int64_t i = 0; i < n; i++, p += 4, q += 4) {
    if (p[3] == 0 || q[3] == 0) {
      empty++;
      continue;
    }
    int64_t db = (int64_t)q[0] - p[0];
    int64_t dg = (int64_t)q[1] - p[1];
    int64_t dr = (int64_t)q[2] - p[2];
    uint64_t v = (uint64_t)(db * db + 4 * (dg * dg + dr * dr));
    s1 += v;
    s2 += v * v;
  }
  sums->s1 = s1;
  sums->s2 = s2;
  sums->empty = empty;
}

void AddPairSums(ScoreTotals& totals, const PairSums& run) {
  totals.s1 += run.s1;
  totals.s2 += run.s2;
  totals.empty += run.empty;
}

// Monotone in each sum: every operation rounds to nearest, so a partial total
// never gives more than the complete one. The searches rely on it to abandon
// a candidate early.
double ScoreFromTotals(const ScoreTotals& totals, uint64_t count) {
  // Both conversions round the same integer to nearest; the 64-bit one is
  // much cheaper, and the searches call this after every row.
  uint64_t high = (uint64_t)(totals.s2 >> 64);
  double s2 = high == 0 ? (double)(uint64_t)totals.s2 : (double)totals.s2;
  return (s2 * SCORE_K + (double)totals.s1 + (double)totals.empty * EMPTY_PAIR) / (double)count;
}

BoundTest MakeBoundTest(float bound, uint64_t count) {
  return BoundTest{bound, (double)bound * (double)count * (1.0 - 1e-9), count};
}

bool FindOverlap(const Image& a, const Image& b, Overlap& overlap) {
  int64_t d = (int64_t)a.x0 - b.x0;
  overlap.ax = d >= 0 ? d : 0;
  overlap.bx = d >= 0 ? 0 : -d;
  int64_t na = a.width - overlap.ax;
  int64_t nb = b.width - overlap.bx;
  overlap.columns = na < nb ? na : nb;
  int64_t e = (int64_t)a.y0 - b.y0;
  overlap.ay = e >= 0 ? e : 0;
  overlap.by = e >= 0 ? 0 : -e;
  int64_t ra = a.height - overlap.ay;
  int64_t rb = b.height - overlap.by;
  overlap.rows = ra < rb ? ra : rb;
  return overlap.columns > 0 && overlap.rows > 0;
}

void SumRow(const Image& a, const Image& b, const Overlap& overlap, int64_t r,
            PairSumsKernel kernel, ScoreTotals& totals) {
  const unsigned char* p = a.pixels + ((overlap.ay + r) * a.width + overlap.ax) * 4;
  const unsigned char* q = b.pixels + ((overlap.by + r) * b.width + overlap.bx) * 4;
  for (int64_t done = 0; done < overlap.columns; done += MAX_RUN_PAIRS) {
    int64_t n = overlap.columns - done < MAX_RUN_PAIRS ? overlap.columns - done : MAX_RUN_PAIRS;
    PairSums run;
    kernel(p + done * 4, q + done * 4, n, &run);
    AddPairSums(totals, run);
  }
}

double MatchScore(const Image& a, const Image& b) {
  Overlap overlap;
  if (!FindOverlap(a, b, overlap)) return NO_OVERLAP;
  ScoreTotals totals = {0, 0, 0};
  for (int64_t r = 0; r < overlap.rows; r++) SumRow(a, b, overlap, r, SumPairsReference, totals);
  return ScoreFromTotals(totals, (uint64_t)overlap.columns * (uint64_t)overlap.rows);
}
