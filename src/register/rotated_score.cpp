// The score of a rotated patch against a fixed picture, sampled and scored in
// one pass: no patch is materialised, and the rows are shared among threads.
// Each row is sampled exactly as RotatedPatch samples it into a small buffer
// and summed by the kernels in force; odd rows hold no data and are counted.
// The sums are exact integers, so the order in which threads add them does
// not matter.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

#include "register/match_score.h"
#include "register/register.h"
#include "run/fatal_error.h"

#ifdef _OPENMP
#include <omp.h>
#endif

static int ThreadCount() {
#ifdef _OPENMP
  return omp_get_max_threads();
#else
  return 1;
#endif
}

static int ThreadNumber() {
#ifdef _OPENMP
  return omp_get_thread_num();
#else
  return 0;
#endif
}

double RotatedPatchScore(const Image& source, int32_t width, int32_t height, float theta,
                         const Image& fixed) {
  Image patch = {nullptr, width, height, width / 2, height / 2};
  Overlap overlap;
  if (!FindOverlap(patch, fixed, overlap)) return (double)0.05f;
  float c = (float)cos((double)theta);
  float s = (float)sin((double)theta);
  int threads = ThreadCount();
  int64_t rowBytes = overlap.columns * 4;
  unsigned char* rows = new (std::nothrow) unsigned char[(size_t)(rowBytes * threads)];
  ScoreTotals* partial = new (std::nothrow) ScoreTotals[(size_t)threads];
  if (rows == nullptr || partial == nullptr) {
    OutOfMemory();
  }
  for (int t = 0; t < threads; t++) partial[t] = ScoreTotals{0, 0, 0};

#pragma omp parallel for schedule(static) num_threads(threads)
  for (int64_t r = 0; r < overlap.rows; r++) {
    int t = ThreadNumber();
    int64_t y = overlap.ay + r;
    if (y % 2 != 0) {
      partial[t].empty += (uint64_t)overlap.columns;
      continue;
    }
    unsigned char* row = rows + rowBytes * t;
    Kernels.SampleRotatedRow(source, c, s, overlap.ax - patch.x0, y - patch.y0, overlap.columns,
                             row);
    const unsigned char* q = fixed.pixels + ((overlap.by + r) * fixed.width + overlap.bx) * 4;
    for (int64_t done = 0; done < overlap.columns; done += MAX_RUN_PAIRS) {
      int64_t n = overlap.columns - done < MAX_RUN_PAIRS ? overlap.columns - done : MAX_RUN_PAIRS;
      PairSums run;
      Kernels.SumPairs(row + done * 4, q + done * 4, n, &run);
      AddPairSums(partial[t], run);
    }
  }

  ScoreTotals totals = {0, 0, 0};
  for (int t = 0; t < threads; t++) {
    totals.s1 += partial[t].s1;
    totals.s2 += partial[t].s2;
    totals.empty += partial[t].empty;
  }
  delete[] rows;
  delete[] partial;
  return ScoreFromTotals(totals, (uint64_t)overlap.columns * (uint64_t)overlap.rows);
}
