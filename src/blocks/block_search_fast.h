// The fast block searches: the same offset and score as SearchBlockOffset and
// SearchBlockOffsetSubpixel, found with a share of the pairs and run for many
// blocks at once.
#pragma once

#include <cstdint>

#include "blocks/block_products.h"
#include "image/image.h"

// The offsets every block tries, in order, listed once per stage: the
// whole-number ones (whole step) or the running float ones (fractional step).
struct BlockOffsets {
  int64_t* wholeX;
  int64_t* wholeY;
  float* realX;
  float* realY;
  int64_t countX;
  int64_t countY;
};

// Lists the offsets of the settings in force. false (nothing allocated) when
// a list would pass limit entries: such ranges take the reference searches.
bool ListBlockOffsets(BlockOffsets& offsets, bool wholeStep, int64_t limit);
void ReleaseBlockOffsets(BlockOffsets& offsets);

// One thread's buffers: the patch, one sampled row, and the order in which
// the patch rows are visited.
struct BlockScratch {
  unsigned char* patch;
  unsigned char* row;
  int64_t* order;
  uint64_t* energy;
  BlockProducts products;  // capacity 0 when the offset range makes them too large
};

float SearchBlockOffsetFast(float& dx, float& dy, int64_t bx, int64_t by,
                            const BlockOffsets& offsets, BlockScratch& scratch);
float SearchBlockOffsetSubpixelFast(float& dx, float& dy, int64_t bx, int64_t by,
                                    const BlockOffsets& offsets, BlockScratch& scratch);
