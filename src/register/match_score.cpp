// Match score, the reference kernel.
//
// Every pair of non-empty pixels gives v = db^2 + 4 (dg^2 + dr^2), 0..585225;
// the score is (S2 k + S1 + nE e) / count with S1 = sum v, S2 = sum v^2, nE the
// pairs with an empty pixel. The sums are kept exactly in integers so any
// order of the pairs gives the same bits: v^2 < 2^39, so S2 lives in 128 bits
// (a picture of 2^25 pairs already passes 2^64); S1 < 2^20 per pair fits 64
// bits for any picture that fits in memory.
#include <cstdint>

#include "register/register.h"

__extension__ typedef unsigned __int128 Uint128;

static const double SCORE_K = (double)(1.0f / 255.0f);    // k, a 32-bit float
static const double EMPTY_PAIR = (double)(0.5f * 0.01f);  // 32-bit product
static const double NO_OVERLAP = (double)0.05f;

double MatchScore(const Image& a, const Image& b) {
  int64_t d = (int64_t)a.x0 - b.x0;
  int64_t ax = d >= 0 ? d : 0;
  int64_t bx = d >= 0 ? 0 : -d;
  int64_t n = a.width - ax < b.width - bx ? a.width - ax : b.width - bx;
  int64_t e = (int64_t)a.y0 - b.y0;
  int64_t ay = e >= 0 ? e : 0;
  int64_t by = e >= 0 ? 0 : -e;
  int64_t rows = a.height - ay < b.height - by ? a.height - ay : b.height - by;
  if (n <= 0 || rows <= 0) return NO_OVERLAP;

  uint64_t s1 = 0;
  Uint128 s2 = 0;
  uint64_t empty = 0;
  for (int64_t r = 0; r < rows; r++) {
    const unsigned char* p = a.pixels + ((ay + r) * a.width + ax) * 4;
    const unsigned char* q = b.pixels + ((by + r) * b.width + bx) * 4;
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
      s2 += (Uint128)(v * v);
    }
  }
  double count = (double)((uint64_t)n * (uint64_t)rows);
  return ((double)s2 * SCORE_K + (double)s1 + (double)empty * EMPTY_PAIR) / count;
}
