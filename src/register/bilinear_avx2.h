// Pieces shared by the AVX2 resampling twins, included only by files built
// for AVX2: fetching the four pixels around four cells, and the blend of
// their bytes with the reference's operations in the reference's order.
#pragma once

#include <immintrin.h>

#include <cstdint>

// The pixels around four cells (32-bit lanes, one pixel each).
struct FourCells {
  __m128i p00, p10, p01, p11;
};

// Every lane of a 64-bit mask narrowed to its 32-bit lane.
static inline __m128i LaneMask(__m256d mask) {
  const __m256i evenLanes = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  return _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_castpd_si256(mask), evenLanes));
}

// Cell (x, y) of each lane: p00 where inside (else 0), its right, lower and
// diagonal neighbours where blends (else 0). Plain loads: on some processors
// four of them beat a gather by far. Lanes outside may hold any position and
// are never read; the caller keeps width x height below 2^31.
static inline FourCells LoadCells(const uint32_t* pixels, int64_t width, __m256d x, __m256d y,
                                  __m256d inside, __m256d blends) {
  alignas(16) int32_t index[4];
  __m256d cell = _mm256_add_pd(_mm256_mul_pd(y, _mm256_set1_pd((double)width)), x);
  __m128i cellIndex = _mm256_cvttpd_epi32(_mm256_and_pd(cell, inside));
  int insideLanes = _mm256_movemask_pd(inside);
  int blendLanes = _mm256_movemask_pd(blends);
  FourCells cells;
  // Four neighbouring cells that all blend, the usual case: four wide loads.
  __m128i run = _mm_add_epi32(_mm_shuffle_epi32(cellIndex, 0), _mm_setr_epi32(0, 1, 2, 3));
  if (blendLanes == 15 && _mm_movemask_epi8(_mm_cmpeq_epi32(run, cellIndex)) == 0xFFFF) {
    const uint32_t* p = pixels + _mm_cvtsi128_si32(cellIndex);
    cells.p00 = _mm_loadu_si128((const __m128i*)p);
    cells.p10 = _mm_loadu_si128((const __m128i*)(p + 1));
    cells.p01 = _mm_loadu_si128((const __m128i*)(p + width));
    cells.p11 = _mm_loadu_si128((const __m128i*)(p + width + 1));
    return cells;
  }
  _mm_store_si128((__m128i*)index, cellIndex);
  uint32_t q[4][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}};
  for (int k = 0; k < 4; k++) {
    const uint32_t* p = pixels + index[k];
    if ((insideLanes >> k & 1) != 0) q[0][k] = p[0];
    if ((blendLanes >> k & 1) == 0) continue;
    q[1][k] = p[1];
    q[2][k] = p[width];
    q[3][k] = p[width + 1];
  }
  // Built from registers: four narrow stores read back as one wide load would stall.
  cells.p00 = _mm_setr_epi32((int)q[0][0], (int)q[0][1], (int)q[0][2], (int)q[0][3]);
  cells.p10 = _mm_setr_epi32((int)q[1][0], (int)q[1][1], (int)q[1][2], (int)q[1][3]);
  cells.p01 = _mm_setr_epi32((int)q[2][0], (int)q[2][1], (int)q[2][2], (int)q[2][3]);
  cells.p11 = _mm_setr_epi32((int)q[3][0], (int)q[3][1], (int)q[3][2], (int)q[3][3]);
  return cells;
}

// ((v00 gx) gy + (v10 fx) gy) + (v01 gx) fy + (v11 fx) fy, as written.
static inline __m256d BlendValues(__m256d v00, __m256d v10, __m256d v01, __m256d v11, __m256d fx,
                                  __m256d gx, __m256d fy, __m256d gy) {
  __m256d value = _mm256_mul_pd(_mm256_mul_pd(v00, gx), gy);
  value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_mul_pd(v10, fx), gy));
  value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_mul_pd(v01, gx), fy));
  return _mm256_add_pd(value, _mm256_mul_pd(_mm256_mul_pd(v11, fx), fy));
}

// Byte k (0 blue .. 3 weight) of four pixels, as doubles.
static inline __m256d Channel(__m128i pixels, int k) {
  __m128i bytes = _mm_and_si128(_mm_srli_epi32(pixels, 8 * k), _mm_set1_epi32(0xFF));
  return _mm256_cvtepi32_pd(bytes);
}

// Each byte blended with weights fx, gx = 1 - fx, fy, gy = 1 - fy, truncated
// to an integer whose low 8 bits are kept; p00 where blends is clear.
static inline __m128i BlendCells(const FourCells& cells, __m256d fx, __m256d gx, __m256d fy,
                                 __m256d gy, __m256d blends) {
  __m128i blended = _mm_setzero_si128();
  for (int k = 0; k < 4; k++) {
    __m256d value = BlendValues(Channel(cells.p00, k), Channel(cells.p10, k), Channel(cells.p01, k),
                                Channel(cells.p11, k), fx, gx, fy, gy);
    __m128i byte = _mm_and_si128(_mm256_cvttpd_epi32(value), _mm_set1_epi32(0xFF));
    blended = _mm_or_si128(blended, _mm_slli_epi32(byte, 8 * k));
  }
  return _mm_blendv_epi8(cells.p00, blended, LaneMask(blends));
}
