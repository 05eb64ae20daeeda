// The one rule by which every search keeps its best candidate, and what it
// lets a fast search leave out.
//
// Rule: a candidate wins when its score (a double) is strictly below the best
// held as a 32-bit float; the new best is stored rounded to float. The best
// starts above every score a picture can give.
//
// Facts the fast searches rely on (scores s_1, s_2, ... in scan order; float()
// rounds to nearest, which is monotone):
// (a) After any prefix, the best held is float(min of the prefix). By
//     induction: a candidate below the best lowers it to float(s_i), and since
//     float() is monotone float(s_i) <= float(min before); a candidate that
//     does not win has s_i >= float(min before) >= min before, so the float of
//     the minimum is unchanged.
// (b) Removing any candidate j that is not the final winner W leaves W the
//     winner. W won against float(min before W); without j that minimum can
//     only rise, so W still wins. After W the best is float(s_W) either way,
//     and no later candidate went below it before, so none does now.
// (c) Let m be the score of any candidate c and T the smallest float strictly
//     above m. A candidate X whose score x reaches T cannot be the final
//     winner: if it were, the final best float(x) >= T would equal, by (a),
//     float(min of all) <= float(m) <= T, so float(x) = T = float(m) > m.
//     Had c come after X, c (m < T) would have won after X; had c come
//     before, the best when X was reached was already <= float(m) = T <= x,
//     so X could not win.
// So a fast search may abandon any candidate whose partial score (a lower
// bound: every term of the score is non-negative) reaches T for some
// completed m, record it as never winning, and replay the completed scores in
// the original order under the rule: by (b), applied once per abandoned
// candidate, the winner and the best float are those of the full scan.
#pragma once

#include <cmath>

// Applies the rule: stores the rounded score and returns true when it wins.
inline bool TakeIfBetter(float& best, double score) {
  if (!(score < best)) return false;
  best = (float)score;
  return true;
}

// The smallest float strictly above score (score finite and below the largest
// float): a partial score that reaches it can never win, by (c).
inline float AbandonBound(double score) {
  float bound = (float)score;
  if ((double)bound <= score) bound = std::nextafter(bound, INFINITY);
  return bound;
}

// The score recorded for an abandoned candidate: never below any best.
constexpr double ABANDONED_SCORE = INFINITY;
