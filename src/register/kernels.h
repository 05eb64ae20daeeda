// Kernel table: the plain reference kernels and their vector twins, chosen once
// at start-up from the processor the program runs on.
//
// Every twin gives exactly the reference's result for every input: the score
// kernels produce the same integer sums, which are exact in any order.
#pragma once

#include "run/float_model.h"

#include <cstdint>

#include "image/image.h"

enum KernelLevel {
  KERNEL_REFERENCE = 0,  // the straightforward code, also the searches without pruning
  KERNEL_SSE2 = 1,
  KERNEL_AVX2 = 2,
};

// Exact integer sums of the match score over a run of pairs: S1 = sum of v,
// S2 = sum of v^2, and the pairs in which either pixel is empty.
struct PairSums {
  uint64_t s1;
  uint64_t s2;
  uint64_t empty;
};

// v^2 <= 585225^2 < 2^39, so a run of at most 2^24 pairs keeps S2 below 2^63.
constexpr int64_t MAX_RUN_PAIRS = INT64_C(1) << 24;

// Writes into sums the sums of the n pairs (a[i], b[i]), 0 <= n <= MAX_RUN_PAIRS;
// a and b point at n pixels of 4 bytes each.
typedef void (*PairSumsKernel)(const unsigned char* a, const unsigned char* b, int64_t n,
                               PairSums* sums);

// Writes the n pixels u = u0 .. u0 + n - 1 of row offset v of a patch of
// source turned by (c, s), as RotatedPatch samples them: the source at
// (x0 + c u - s v, y0 + s u + c v) truncated, or an empty pixel (all 0).
typedef void (*RotatedRowKernel)(const Image& source, float c, float s, int64_t u0, int64_t v,
                                 int64_t n, unsigned char* out);

// Writes the n pixels u = u0 .. u0 + n - 1 of row offset v of TransformImage's
// output: the source sampled by the bilinear rule at
// (float)(x0 + dx + c u - s v), (float)(y0 + dy + s u + c v).
typedef void (*TransformRowKernel)(const Image& source, double c, double s, float dx, float dy,
                                   int64_t u0, int64_t v, int64_t n, unsigned char* out);

// Writes the n pixels i = first .. first + n - 1 of a row of the fractional
// block search's patch: source around (bx + trunc(i - ox), y) blended with
// weights (i - ox - trunc(i - ox), wy), as FetchBlended does.
typedef void (*BlockRowKernel)(const Image& source, int64_t bx, int64_t y, double wy, float ox,
                               int64_t first, int64_t n, unsigned char* out);

struct KernelTable {
  int level;  // the KernelLevel in force
  PairSumsKernel SumPairs;
  RotatedRowKernel SampleRotatedRow;
  TransformRowKernel TransformRow;
  BlockRowKernel SampleBlockRow;
};

// The kernels in force; the reference ones until SelectKernels is called.
extern KernelTable Kernels;

void SumPairsReference(const unsigned char* a, const unsigned char* b, int64_t n, PairSums* sums);
void SumPairsSse2(const unsigned char* a, const unsigned char* b, int64_t n, PairSums* sums);
void SumPairsAvx2(const unsigned char* a, const unsigned char* b, int64_t n, PairSums* sums);

void SampleRotatedRowReference(const Image& source, float c, float s, int64_t u0, int64_t v,
                               int64_t n, unsigned char* out);
void SampleRotatedRowAvx2(const Image& source, float c, float s, int64_t u0, int64_t v, int64_t n,
                          unsigned char* out);

void TransformRowReference(const Image& source, double c, double s, float dx, float dy, int64_t u0,
                           int64_t v, int64_t n, unsigned char* out);
void TransformRowAvx2(const Image& source, double c, double s, float dx, float dy, int64_t u0,
                      int64_t v, int64_t n, unsigned char* out);

void SampleBlockRowReference(const Image& source, int64_t bx, int64_t y, double wy, float ox,
                             int64_t first, int64_t n, unsigned char* out);
void SampleBlockRowAvx2(const Image& source, int64_t bx, int64_t y, double wy, float ox,
                        int64_t first, int64_t n, unsigned char* out);

// Whether this processor (and this build) can run the kernels of level.
bool KernelLevelAvailable(int level);

// Raises the table to the highest level this processor has. Called once by the
// run driver before any picture is read.
void SelectKernels();

// Forces one level, for the tests and the benchmark. Returns false, leaving the
// table unchanged, when the processor lacks it.
bool ForceKernelLevel(int level);
