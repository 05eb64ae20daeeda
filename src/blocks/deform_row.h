// One row of the deformation, the reference and its vector twin.
#pragma once

#include <cstdint>

#include "blocks/blocks.h"

// Where a pixel coordinate falls between the block points, which sit at
// k * cell + cell / 2 (the half taken as a real number): block index, weight
// of the next block and that next block. Before the first point and past the
// last the field holds still. With an odd cell the weight can be slightly
// negative just past a point's integer half (cell 5, x = 7: -0.1).
struct FieldPlace {
  int64_t index;
  int64_t next;
  float weight;
};

// The place of position in a field of count blocks spaced by cell.
FieldPlace PlaceInField(int64_t position, int64_t cell, int64_t count);

// Writes pixels first .. first + n - 1 of row y of the deformed picture, as
// DeformImage does: columns[x] places column x in the field, row places y.
typedef void (*DeformRowKernel)(const Image& source, const BlockField& field,
                                const FieldPlace* columns, FieldPlace row, int64_t y,
                                int64_t first, int64_t n, unsigned char* out);

void DeformRowReference(const Image& source, const BlockField& field, const FieldPlace* columns,
                        FieldPlace row, int64_t y, int64_t first, int64_t n, unsigned char* out);
void DeformRowAvx2(const Image& source, const BlockField& field, const FieldPlace* columns,
                   FieldPlace row, int64_t y, int64_t first, int64_t n, unsigned char* out);
