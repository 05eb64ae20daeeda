// The horizontal half of the fractional block search's blend, shared by all
// the trials of one horizontal offset.
//
// FetchBlended blends each byte as
//   ((p00 (1 - wx)) (1 - wy) + (p10 wx) (1 - wy)) + (p01 (1 - wx)) wy + (p11 wx) wy.
// For a horizontal offset ox, every patch column i reads the same source
// column x = bx + trunc(i - ox) with the same wx, whatever the vertical
// offset; so the products p (1 - wx) and p wx of every source row the trials
// can reach are formed once, and each trial finishes the blend from them with
// its own wy: the same operations on the same operands, in the same order.
#pragma once

#include <cstdint>

#include "image/image.h"

struct BlockProducts {
  double* values;        // per row, per column: p (1 - wx) for 4 bytes, then p' wx for 4
  int64_t* x;            // source column of each patch column
  unsigned char* state;  // per column: 0 outside the source, 1 last column (copied), 2 blended
  int64_t capacity;      // entries (row x column) values can hold
  int64_t columns;
  int64_t firstRow;      // source row of values' first row
  int64_t rows;
};

// Forms the products of patch columns first .. first + columns - 1 at offset
// ox, for the source rows firstRow .. lastRow (clipped to the source). false
// when they do not fit the capacity (the caller samples pixel by pixel).
bool FillBlockProducts(BlockProducts& products, const Image& source, int64_t bx, float ox,
                       int64_t first, int64_t columns, int64_t firstRow, int64_t lastRow);

// The patch row that samples source row y (and y + 1) with weight wy, as
// SampleBlockRowReference writes it, for the columns of the products. false
// (nothing written) when the products do not hold those rows.
bool SampleRowFromProducts(const BlockProducts& products, const Image& source, int64_t y,
                           double wy, unsigned char* out);

bool SampleRowFromProductsAvx2(const BlockProducts& products, const Image& source, int64_t y,
                               double wy, unsigned char* out);

// Buffers for capacity entries of side columns; capacity 0 keeps none.
BlockProducts NewBlockProducts(int64_t capacity, int64_t side);
void ReleaseBlockProducts(BlockProducts& products);
