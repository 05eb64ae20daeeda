// AVX2 twin of SampleRowFromProducts (block_products.cpp): the four bytes of
// a pixel in the four lanes of one register, the same products finished with
// the same operations in the same order, ((a (1 - wy) + a' (1 - wy)) + b wy)
// + b' wy, truncated to an integer whose low 8 bits are kept.
#include <immintrin.h>

#include <cstring>

#include "blocks/block_products.h"

bool SampleRowFromProductsAvx2(const BlockProducts& products, const Image& source, int64_t y,
                               double wy, unsigned char* out) {
  int64_t columns = products.columns;
  if (y < 0 || y >= source.height) {
    memset(out, 0, (size_t)columns * 4);
    return true;
  }
  bool blendRow = y <= (int64_t)source.height - 2;
  int64_t row = y - products.firstRow;
  if (row < 0 || row + (blendRow ? 1 : 0) >= products.rows) return false;
  const double* upper = products.values + row * columns * 8;
  const double* lower = blendRow ? upper + columns * 8 : upper;
  const __m256d down = _mm256_set1_pd(wy);
  const __m256d up = _mm256_set1_pd(1 - wy);
  const __m128i lowBytes = _mm_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
  for (int64_t k = 0; k < columns; k++, out += 4) {
    unsigned char state = products.state[k];
    if (state == 0) {
      memset(out, 0, 4);
      continue;
    }
    if (state == 1 || !blendRow) {
      memcpy(out, source.pixels + (y * source.width + products.x[k]) * 4, 4);
      continue;
    }
    const double* a = upper + k * 8;
    const double* b = lower + k * 8;
    __m256d value = _mm256_add_pd(_mm256_mul_pd(_mm256_loadu_pd(a), up),
                                  _mm256_mul_pd(_mm256_loadu_pd(a + 4), up));
    value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_loadu_pd(b), down));
    value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_loadu_pd(b + 4), down));
    int bytes = _mm_cvtsi128_si32(_mm_shuffle_epi8(_mm256_cvttpd_epi32(value), lowBytes));
    memcpy(out, &bytes, 4);
  }
  return true;
}
