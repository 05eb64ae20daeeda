#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

#include "blocks/block_sampling.h"
#include "blocks/blocks.h"
#include "blocks/deform_row.h"
#include "register/kernels.h"
#include "run/fatal_error.h"

FieldPlace PlaceInField(int64_t position, int64_t cell, int64_t count) {
  FieldPlace place = {0, 0, 0.0f};
  if (position > cell / 2) {
    place.index = (position - cell / 2) / cell;
    place.weight = (float)((position - ((double)(place.index * cell) + cell * 0.5)) / cell);
  }
  if (place.index >= count) {
    place.index = count - 1;
    place.weight = 0.0f;
  }
  place.next = place.index + 1 < count ? place.index + 1 : place.index;
  return place;
}

// Blend of one field array at a pixel, left to right in double as written.
static double BlendField(const float* values, int64_t columns, const FieldPlace& column,
                         const FieldPlace& row) {
  double fx = column.weight;
  double fy = row.weight;
  return values[row.index * columns + column.index] * (1 - fx) * (1 - fy) +
         values[row.index * columns + column.next] * fx * (1 - fy) +
         values[row.next * columns + column.index] * (1 - fx) * fy +
         values[row.next * columns + column.next] * fx * fy;
}

// Tested as doubles first: a position far outside, or not a number, must
// never reach an integer conversion.
static void FetchPixel(const Image& source, double sx, double sy, unsigned char* out) {
  double wholeX = std::trunc(sx);
  double wholeY = std::trunc(sy);
  if (!(wholeX >= 0 && wholeX < (double)source.width && wholeY >= 0 &&
        wholeY < (double)source.height)) {
    out[0] = out[1] = out[2] = out[3] = 0;
    return;
  }
  FetchBlended(source, (int64_t)wholeX, (int64_t)wholeY, sx - wholeX, sy - wholeY, out);
}

void DeformRowReference(const Image& source, const BlockField& field, const FieldPlace* columns,
                        FieldPlace row, int64_t y, int64_t first, int64_t n, unsigned char* out) {
  for (int64_t x = first; x < first + n; x++, out += 4) {
    // Sub-pixel offsets are kept as 32-bit floats.
    float offsetX = (float)BlendField(field.dx, field.columns, columns[x], row);
    float offsetY = (float)BlendField(field.dy, field.columns, columns[x], row);
    FetchPixel(source, (double)x - offsetX, (double)y - offsetY, out);
  }
}

Image DeformImage(const Image& source, const BlockField& field, int32_t cellWidth,
                  int32_t cellHeight) {
  Image result = source;
  result.pixels = AllocatePixels(source.width, source.height);
  int64_t width = source.width;
  int64_t height = source.height;
  // A field without blocks, or cells without size, has nothing to move by.
  if (field.columns <= 0 || field.rows <= 0 || cellWidth <= 0 || cellHeight <= 0) {
    if (width > 0 && height > 0) memcpy(result.pixels, source.pixels, (size_t)(width * height * 4));
    return result;
  }

  // Where each column falls in the field does not depend on the row: the
  // fast path places the columns once.
  bool fast = Kernels.level != KERNEL_REFERENCE;
  FieldPlace* columns = fast ? new (std::nothrow) FieldPlace[(size_t)width] : nullptr;
  if (fast && columns == nullptr) OutOfMemory();
  if (fast)
    for (int64_t x = 0; x < width; x++) columns[x] = PlaceInField(x, cellWidth, field.columns);

  // Each pixel depends on its own position only: the fast path shares rows
  // among threads.
  DeformRowKernel deformRow = Kernels.level >= KERNEL_AVX2 ? DeformRowAvx2 : DeformRowReference;
#pragma omp parallel for schedule(static) if (fast)
  for (int64_t y = 0; y < height; y++) {
    FieldPlace row = PlaceInField(y, cellHeight, field.rows);
    if (fast) {
      deformRow(source, field, columns, row, y, 0, width, result.pixels + y * width * 4);
      continue;
    }
    for (int64_t x = 0; x < width; x++) {
      FieldPlace column = PlaceInField(x, cellWidth, field.columns);
      // Sub-pixel offsets are kept as 32-bit floats.
      float offsetX = (float)BlendField(field.dx, field.columns, column, row);
      float offsetY = (float)BlendField(field.dy, field.columns, column, row);
      FetchPixel(source, (double)x - offsetX, (double)y - offsetY,
                 result.pixels + (y * width + x) * 4);
    }
  }
  delete[] columns;
  return result;
}
