#include "blocks/block_products.h"

#include <cmath>
#include <cstring>
#include <new>

#include "run/fatal_error.h"

enum ColumnState { OUTSIDE = 0, COPIED = 1, BLENDED = 2 };

bool FillBlockProducts(BlockProducts& products, const Image& source, int64_t bx, float ox,
                       int64_t first, int64_t columns, int64_t firstRow, int64_t lastRow) {
  if (firstRow < 0) firstRow = 0;
  if (lastRow > (int64_t)source.height - 1) lastRow = (int64_t)source.height - 1;
  int64_t rows = lastRow >= firstRow ? lastRow - firstRow + 1 : 0;
  if (rows * columns > products.capacity) return false;
  products.columns = columns;
  products.firstRow = firstRow;
  products.rows = rows;
  for (int64_t k = 0; k < columns; k++) {
    double rx = (double)(first + k) - ox;
    double whole = std::trunc(rx);
    double wx = rx - whole;
    int64_t x = bx + (int64_t)whole;
    products.x[k] = x;
    products.state[k] = x < 0 || x >= source.width ? OUTSIDE : x > source.width - 2 ? COPIED : BLENDED;
    if (products.state[k] != BLENDED) continue;
    for (int64_t r = 0; r < rows; r++) {
      const unsigned char* p00 = source.pixels + ((firstRow + r) * source.width + x) * 4;
      double* value = products.values + (r * columns + k) * 8;
      for (int c = 0; c < 4; c++) {
        value[c] = p00[c] * (1 - wx);
        value[4 + c] = p00[4 + c] * wx;
      }
    }
  }
  return true;
}

bool SampleRowFromProducts(const BlockProducts& products, const Image& source, int64_t y,
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
  for (int64_t k = 0; k < columns; k++, out += 4) {
    unsigned char state = products.state[k];
    if (state == OUTSIDE) {
      memset(out, 0, 4);
    } else if (state == COPIED || !blendRow) {
      memcpy(out, source.pixels + (y * source.width + products.x[k]) * 4, 4);
    } else {
      const double* a = upper + k * 8;
      const double* b = lower + k * 8;
      for (int c = 0; c < 4; c++) {
        double value = a[c] * (1 - wy) + a[4 + c] * (1 - wy) + b[c] * wy + b[4 + c] * wy;
        out[c] = (unsigned char)(int16_t)(int)value;  // low 8 bits, as FetchBlended
      }
    }
  }
  return true;
}

BlockProducts NewBlockProducts(int64_t capacity, int64_t side) {
  BlockProducts products = {nullptr, nullptr, nullptr, 0, 0, 0, 0};
  if (capacity <= 0) return products;
  products.values = new (std::nothrow) double[(size_t)(capacity * 8)];
  products.x = new (std::nothrow) int64_t[(size_t)side];
  products.state = new (std::nothrow) unsigned char[(size_t)side];
  if (products.values == nullptr || products.x == nullptr || products.state == nullptr) OutOfMemory();
  products.capacity = capacity;
  return products;
}

void ReleaseBlockProducts(BlockProducts& products) {
  delete[] products.values;
  delete[] products.x;
  delete[] products.state;
  products = BlockProducts{nullptr, nullptr, nullptr, 0, 0, 0, 0};
}
