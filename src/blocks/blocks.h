// Local block adjustment: the gradient form, the block offset search and the
// deformation of the picture through the field of block offsets.
#pragma once

#include "run/float_model.h"

#include <cstdint>

#include "image/image.h"

constexpr float NO_MATCH_SCORE = 1e9f;
constexpr float SKIPPED_BLOCK_SCORE = -10.0f;

// Per-block offsets and scores; block (k, l) at index l * columns + k. Each
// array has (columns + 1) x (rows + 1) entries.
struct BlockField {
  float* dx;
  float* dy;
  float* score;
  int32_t columns;
  int32_t rows;
};

// Refines Current block by block against Reference and deforms it.
void AdjustBlocks();

// Converts a picture in place: byte 0 grey, byte 1 horizontal and byte 2
// vertical gradient around 128, byte 3 unchanged.
void MakeGradientForm(Image& image);

// The gradient form in a new picture (same record, new pixels that the
// caller owns); the source is left as it is. Rows are shared among threads.
Image GradientCopy(const Image& source);

// Makes the gradient form of Reference once for the whole run, and releases
// it. Without it each block stage makes its own.
void PrepareBlockStage();
void EndBlockStage();

// Best offset of the block at (bx, by) of Current; whole-number step.
float SearchBlockOffset(float& dx, float& dy, int32_t bx, int32_t by);

// Best offset of the block at (bx, by) of Current; fractional step.
float SearchBlockOffsetSubpixel(float& dx, float& dy, int32_t bx, int32_t by);

// New picture fetched from source through the field, cells of
// cellWidth x cellHeight pixels. The caller owns the returned pixels.
Image DeformImage(const Image& source, const BlockField& field, int32_t cellWidth,
                  int32_t cellHeight);
