// AVX2 twin of DeformRowReference (deform_image.cpp) and of the FetchBlended
// rule it calls (block_sampling.cpp).
//
// Four pixels at a time, with the reference's operations in its order: the
// blend of each field array
//   ((v00 (1 - fx)) (1 - fy) + (v10 fx) (1 - fy)) + (v01 (1 - fx)) fy + (v11 fx) fy
// in double, rounded to float; the position x - offset; its whole part by
// truncation and the weights; the blend of each byte in the same form,
// truncated to an integer whose low 8 bits are kept. Lanes outside get 0,
// lanes in the last column or row copy p00. Pixel indices go through 32-bit
// lanes, so sources of 2^31 pixels or more, and the last n mod 4 pixels,
// take the reference.
#include <immintrin.h>

#include <cstdint>

#include "blocks/deform_row.h"
#include "register/bilinear_avx2.h"

// The offsets of one field array at four columns, rounded to float.
static inline __m256d FieldOffsets(const float* values, int64_t columnCount,
                                   const FieldPlace* columns, const FieldPlace& row, __m256d fx,
                                   __m256d gx, __m256d fy, __m256d gy) {
  const float* top = values + row.index * columnCount;
  const float* bottom = values + row.next * columnCount;
  const FieldPlace* c = columns;
  __m256d v00 = _mm256_setr_pd(top[c[0].index], top[c[1].index], top[c[2].index], top[c[3].index]);
  __m256d v10 = _mm256_setr_pd(top[c[0].next], top[c[1].next], top[c[2].next], top[c[3].next]);
  __m256d v01 = _mm256_setr_pd(bottom[c[0].index], bottom[c[1].index], bottom[c[2].index],
                               bottom[c[3].index]);
  __m256d v11 = _mm256_setr_pd(bottom[c[0].next], bottom[c[1].next], bottom[c[2].next],
                               bottom[c[3].next]);
  return _mm256_cvtps_pd(_mm256_cvtpd_ps(BlendValues(v00, v10, v01, v11, fx, gx, fy, gy)));
}

void DeformRowAvx2(const Image& source, const BlockField& field, const FieldPlace* columns,
                   FieldPlace row, int64_t y, int64_t first, int64_t n, unsigned char* out) {
  int64_t done = 0;
  if ((int64_t)source.width * source.height <= INT32_MAX) {
    const __m256d zero = _mm256_setzero_pd();
    const __m256d one = _mm256_set1_pd(1.0);
    const __m256d width = _mm256_set1_pd((double)source.width);
    const __m256d height = _mm256_set1_pd((double)source.height);
    const __m256d lastX = _mm256_set1_pd((double)source.width - 1);
    const __m256d lastY = _mm256_set1_pd((double)source.height - 1);
    const __m256d rowWeight = _mm256_set1_pd((double)row.weight);
    const __m256d rowRest = _mm256_sub_pd(one, rowWeight);
    const __m256d rowPosition = _mm256_set1_pd((double)y);
    const uint32_t* pixels = (const uint32_t*)source.pixels;
    for (; done + 4 <= n; done += 4) {
      int64_t x = first + done;
      const FieldPlace* c = columns + x;
      __m256d fx = _mm256_setr_pd(c[0].weight, c[1].weight, c[2].weight, c[3].weight);
      __m256d gx = _mm256_sub_pd(one, fx);
      __m256d offsetX = FieldOffsets(field.dx, field.columns, c, row, fx, gx, rowWeight, rowRest);
      __m256d offsetY = FieldOffsets(field.dy, field.columns, c, row, fx, gx, rowWeight, rowRest);
      __m256d sx = _mm256_sub_pd(_mm256_setr_pd((double)x, (double)(x + 1), (double)(x + 2),
                                                (double)(x + 3)),
                                 offsetX);
      __m256d sy = _mm256_sub_pd(rowPosition, offsetY);
      __m256d wholeX = _mm256_round_pd(sx, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
      __m256d wholeY = _mm256_round_pd(sy, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
      __m256d inside = _mm256_and_pd(
          _mm256_and_pd(_mm256_cmp_pd(wholeX, zero, _CMP_GE_OQ), _mm256_cmp_pd(wholeX, width, _CMP_LT_OQ)),
          _mm256_and_pd(_mm256_cmp_pd(wholeY, zero, _CMP_GE_OQ), _mm256_cmp_pd(wholeY, height, _CMP_LT_OQ)));
      __m256d blends = _mm256_and_pd(inside, _mm256_and_pd(_mm256_cmp_pd(wholeX, lastX, _CMP_LT_OQ),
                                                           _mm256_cmp_pd(wholeY, lastY, _CMP_LT_OQ)));
      FourCells cells = LoadCells(pixels, source.width, wholeX, wholeY, inside, blends);
      __m128i result = cells.p00;
      if (_mm256_movemask_pd(blends) != 0) {
        __m256d wx = _mm256_sub_pd(sx, wholeX);
        __m256d wy = _mm256_sub_pd(sy, wholeY);
        result = BlendCells(cells, wx, _mm256_sub_pd(one, wx), wy, _mm256_sub_pd(one, wy), blends);
      }
      _mm_storeu_si128((__m128i*)(out + done * 4), result);
    }
  }
  DeformRowReference(source, field, columns, row, y, first + done, n - done, out + done * 4);
}
