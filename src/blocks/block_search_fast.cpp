// Fast block searches. Within a block the trials are scanned in their order
// under the selection rule, and a trial is abandoned as soon as its partial
// score reaches the bound set by the lowest score completed in the block
// (selection_rule.h: such a trial cannot be the winner, and leaving it out
// leaves the winner). The trial in the middle of the range, usually close to
// the answer, is completed first to set that bound. The fractional search
// samples and scores each row in one pass, so an abandoned trial stops
// resampling too.
#include "blocks/block_search_fast.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "blocks/block_sampling.h"
#include "blocks/blocks.h"
#include "register/match_score.h"
#include "register/overlap_range.h"
#include "register/selection_rule.h"
#include "run/run_state.h"
#include "run/settings.h"

static bool ListWhole(int64_t*& values, int64_t& count, int64_t min, int64_t max, float step,
                      int64_t limit) {
  count = 0;
  for (int64_t o = min; min <= max && count <= limit;) {
    count++;
    if (!NextWholeOffset(o, step, max)) break;
  }
  if (count > limit) return false;
  values = new (std::nothrow) int64_t[(size_t)(count > 0 ? count : 1)];
  if (values == nullptr) return false;
  int64_t o = min;
  for (int64_t i = 0; i < count; i++) {
    values[i] = o;
    NextWholeOffset(o, step, max);
  }
  return true;
}

// The running offset is a 32-bit float; a step too small to move it ends the loop.
static bool ListReal(float*& values, int64_t& count, int64_t min, int64_t max, float step,
                     int64_t limit) {
  count = 0;
  for (float o = (float)min; (double)o <= (double)max && count <= limit;) {
    count++;
    float next = o + step;
    if (next == o) break;
    o = next;
  }
  if (count > limit) return false;
  values = new (std::nothrow) float[(size_t)(count > 0 ? count : 1)];
  if (values == nullptr) return false;
  float o = (float)min;
  for (int64_t i = 0; i < count; i++) {
    values[i] = o;
    o = o + step;
  }
  return true;
}

bool ListBlockOffsets(BlockOffsets& offsets, bool wholeStep, int64_t limit) {
  const SettingsRecord& s = Settings;
  offsets = BlockOffsets{nullptr, nullptr, nullptr, nullptr, 0, 0};
  bool listed = wholeStep
      ? ListWhole(offsets.wholeX, offsets.countX, s.BlockShiftMinX, s.BlockShiftMaxX, s.BlockShiftStep, limit) &&
            ListWhole(offsets.wholeY, offsets.countY, s.BlockShiftMinY, s.BlockShiftMaxY, s.BlockShiftStep, limit)
      : ListReal(offsets.realX, offsets.countX, s.BlockShiftMinX, s.BlockShiftMaxX, s.BlockShiftStep, limit) &&
            ListReal(offsets.realY, offsets.countY, s.BlockShiftMinY, s.BlockShiftMaxY, s.BlockShiftStep, limit);
  if (!listed) ReleaseBlockOffsets(offsets);
  return listed;
}

void ReleaseBlockOffsets(BlockOffsets& offsets) {
  delete[] offsets.wholeX;
  delete[] offsets.wholeY;
  delete[] offsets.realX;
  delete[] offsets.realY;
  offsets = BlockOffsets{nullptr, nullptr, nullptr, nullptr, 0, 0};
}

// Where the gradients depart from flat (128) a wrong offset costs most: the
// rows of the patch are visited in that order, so that a losing trial is
// abandoned early. Sums are exact in any order.
static void OrderRows(const Image& patch, BlockScratch& scratch) {
  int64_t side = patch.width;
  for (int64_t j = 0; j < side; j++) {
    uint64_t energy = 0;
    const unsigned char* p = patch.pixels + j * side * 4;
    for (int64_t i = 0; i < side; i++, p += 4) {
      if (p[3] == 0) continue;
      int64_t h = (int64_t)p[1] - 128;
      int64_t v = (int64_t)p[2] - 128;
      energy += (uint64_t)(h * h + v * v);
    }
    scratch.energy[j] = energy;
    scratch.order[j] = j;
  }
  const uint64_t* energy = scratch.energy;
  std::stable_sort(scratch.order, scratch.order + side,
                   [energy](int64_t a, int64_t b) { return energy[a] > energy[b]; });
}

// Score of the whole-step patch placed at (x0, y0), or ABANDONED_SCORE once
// its partial score reaches the bound of lowest.
static double WholeTrial(const Image& reference, Image& patch, const int64_t* order, int32_t x0,
                         int32_t y0, double lowest) {
  patch.x0 = x0;
  patch.y0 = y0;
  Overlap overlap;
  if (!FindOverlap(reference, patch, overlap)) return NO_OVERLAP_SCORE;
  uint64_t count = (uint64_t)overlap.columns * (uint64_t)overlap.rows;
  BoundTest test = MakeBoundTest(AbandonBound(lowest), count);
  ScoreTotals totals = {0, 0, 0};
  for (int64_t k = 0; k < patch.height; k++) {
    int64_t r = order[k] - overlap.by;
    if (r < 0 || r >= overlap.rows) continue;
    SumRow(reference, patch, overlap, r, Kernels.SumPairs, totals);
    if (ReachesBound(totals, test)) return ABANDONED_SCORE;
  }
  return ScoreFromTotals(totals, count);
}

float SearchBlockOffsetFast(float& dx, float& dy, int64_t bx, int64_t by,
                            const BlockOffsets& offsets, BlockScratch& scratch) {
  dx = 0;
  dy = 0;
  float best = NO_MATCH_SCORE;
  if (!BlockSearchHasTrials() || offsets.countX == 0 || offsets.countY == 0) return best;
  int64_t half = Settings.SearchWidth;
  int64_t side = 2 * half + 1;
  Image patch = {scratch.patch, (int32_t)side, (int32_t)side, 0, 0};
  CopyPatch(patch, bx - half, by - half);
  OrderRows(patch, scratch);
  Image reference = ReferenceAtOrigin();
  int64_t left = (int64_t)Reference.x0 - Current.x0 + bx - half;
  int64_t top = (int64_t)Reference.y0 - Current.y0 + by - half;

  double lowest = WholeTrial(reference, patch, scratch.order,
                             PatchPoint(left + offsets.wholeX[offsets.countX / 2], side, Reference.width),
                             PatchPoint(top + offsets.wholeY[offsets.countY / 2], side, Reference.height),
                             INFINITY);
  for (int64_t i = 0; i < offsets.countX; i++) {
    int32_t x0 = PatchPoint(left + offsets.wholeX[i], side, Reference.width);
    for (int64_t j = 0; j < offsets.countY; j++) {
      int32_t y0 = PatchPoint(top + offsets.wholeY[j], side, Reference.height);
      double score = WholeTrial(reference, patch, scratch.order, x0, y0, lowest);
      if (score < lowest) lowest = score;
      if (!TakeIfBetter(best, score)) continue;
      dx = (float)offsets.wholeX[i];
      dy = (float)offsets.wholeY[j];
    }
  }
  return best;
}

// products: those of ox, or null to sample pixel by pixel.
static double SubpixelTrial(const Image& reference, const Overlap& overlap, int64_t bx,
                            int64_t by, float ox, float oy, const BlockScratch& scratch,
                            const BlockProducts* products, int64_t side, double lowest) {
  uint64_t count = (uint64_t)overlap.columns * (uint64_t)overlap.rows;
  BoundTest test = MakeBoundTest(AbandonBound(lowest), count);
  ScoreTotals totals = {0, 0, 0};
  unsigned char* row = scratch.row;
  for (int64_t k = 0; k < side; k++) {
    int64_t r = scratch.order[k] - overlap.by;
    if (r < 0 || r >= overlap.rows) continue;
    double ry = (double)(overlap.by + r) - oy;
    double wholeY = std::trunc(ry);
    int64_t y = by + (int64_t)wholeY;
    bool sampled = products != nullptr &&
                   (Kernels.level >= KERNEL_AVX2
                        ? SampleRowFromProductsAvx2(*products, Current, y, ry - wholeY, row)
                        : SampleRowFromProducts(*products, Current, y, ry - wholeY, row));
    if (!sampled)
      Kernels.SampleBlockRow(Current, bx, y, ry - wholeY, ox, overlap.bx, overlap.columns, row);
    const unsigned char* p =
        reference.pixels + ((overlap.ay + r) * reference.width + overlap.ax) * 4;
    PairSums run;
    Kernels.SumPairs(p, row, overlap.columns, &run);
    AddPairSums(totals, run);
    if (ReachesBound(totals, test)) return ABANDONED_SCORE;
  }
  return ScoreFromTotals(totals, count);
}

float SearchBlockOffsetSubpixelFast(float& dx, float& dy, int64_t bx, int64_t by,
                                    const BlockOffsets& offsets, BlockScratch& scratch) {
  dx = 0;
  dy = 0;
  float best = NO_MATCH_SCORE;
  if (!BlockSearchHasTrials() || offsets.countX == 0 || offsets.countY == 0) return best;
  int64_t side = 2 * (int64_t)Settings.SearchWidth + 1;
  Image reference = ReferenceAtOrigin();
  Image patch = {nullptr, (int32_t)side, (int32_t)side, 0, 0};
  patch.x0 = PatchPoint((int64_t)Reference.x0 - Current.x0 + bx, side, Reference.width);
  patch.y0 = PatchPoint((int64_t)Reference.y0 - Current.y0 + by, side, Reference.height);
  Overlap overlap;
  // Without overlap every trial scores the same 0.05, and the first one wins.
  if (!FindOverlap(reference, patch, overlap)) {
    dx = offsets.realX[0];
    dy = offsets.realY[0];
    TakeIfBetter(best, NO_OVERLAP_SCORE);
    return best;
  }

  // The patch rows are ordered as the unmoved patch's.
  Image unmoved = {scratch.patch, (int32_t)side, (int32_t)side, 0, 0};
  CopyPatch(unmoved, bx, by);
  OrderRows(unmoved, scratch);
  double lowest = SubpixelTrial(reference, overlap, bx, by, offsets.realX[offsets.countX / 2],
                                offsets.realY[offsets.countY / 2], scratch, nullptr, side,
                                INFINITY);
  // The source rows any trial reads: trunc(j - oy) falls as oy rises, and the
  // offsets rise through the list.
  int64_t firstRow = by + (int64_t)std::trunc((double)overlap.by - offsets.realY[offsets.countY - 1]);
  int64_t lastRow =
      by + (int64_t)std::trunc((double)(overlap.by + overlap.rows - 1) - offsets.realY[0]) + 1;
  for (int64_t i = 0; i < offsets.countX; i++) {
    float ox = offsets.realX[i];
    const BlockProducts* products =
        FillBlockProducts(scratch.products, Current, bx, ox, overlap.bx, overlap.columns, firstRow,
                          lastRow)
            ? &scratch.products
            : nullptr;
    for (int64_t j = 0; j < offsets.countY; j++) {
      float oy = offsets.realY[j];
      double score =
          SubpixelTrial(reference, overlap, bx, by, ox, oy, scratch, products, side, lowest);
      if (score < lowest) lowest = score;
      if (!TakeIfBetter(best, score)) continue;
      dx = ox;
      dy = oy;
    }
  }
  return best;
}
