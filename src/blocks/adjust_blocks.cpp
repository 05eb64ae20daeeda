#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>


#include "blocks/block_search_fast.h"
#include "blocks/blocks.h"
#include "register/kernels.h"
#include "run/fatal_error.h"
#include "run/threads.h"
#include "run/run_state.h"
#include "run/settings.h"

// A grid in which any offset can be tried has fewer blocks than Current has
// pixels. Only an offset range with no trial (a negative maximum) can ask for
// more; past 2^30 entries (4 GB an array) such a field takes the
// out-of-memory path instead of overcommitted memory that cannot be backed.
static const int64_t FIELD_ENTRIES_FLOOR = INT64_C(1) << 30;

static Image CopyPicture(const Image& image) {
  Image copy = image;
  copy.pixels = AllocatePixels(image.width, image.height);
  size_t bytes = (size_t)image.width * (size_t)image.height * 4;
  if (bytes > 0) memcpy(copy.pixels, image.pixels, bytes);
  return copy;
}

// Number of block points first, first + grid, ... that stay below end.
static int64_t CountBlocks(int64_t first, int64_t end, int64_t grid) {
  if (first >= end) return 0;
  return (end - first - 1) / grid + 1;
}

static float* AllocateFloats(int64_t count) {
  float* values = new (std::nothrow) float[(size_t)count];
  if (values == nullptr) {
    OutOfMemory();
  }
  return values;
}

// Each array gets (columns + 1) x (rows + 1) entries, none cleared.
static BlockField AllocateField(int64_t columns, int64_t rows) {
  int64_t pixels = ((int64_t)Current.width + 1) * ((int64_t)Current.height + 1);
  int64_t limit = pixels > FIELD_ENTRIES_FLOOR ? pixels : FIELD_ENTRIES_FLOOR;
  if (columns > INT32_MAX || rows > INT32_MAX || columns + 1 > limit / (rows + 1)) {
    OutOfMemory();
  }
  int64_t entries = (columns + 1) * (rows + 1);
  BlockField field;
  field.dx = AllocateFloats(entries);
  field.dy = AllocateFloats(entries);
  field.score = AllocateFloats(entries);
  field.columns = (int32_t)columns;
  field.rows = (int32_t)rows;
  return field;
}

static void ReleaseField(BlockField& field) {
  delete[] field.dx;
  delete[] field.dy;
  delete[] field.score;
  field.dx = nullptr;
  field.dy = nullptr;
  field.score = nullptr;
}

// A block is searched only when its square of side 2S + 1, widened by the
// offset range and carried into Reference's frame, stays inside Reference;
// one column past the right edge and one row past the bottom are allowed.
static bool BlockLeavesReference(int64_t bx, int64_t by) {
  const SettingsRecord& s = Settings;
  int64_t dx0 = (int64_t)Reference.x0 - Current.x0;
  int64_t dy0 = (int64_t)Reference.y0 - Current.y0;
  return bx - s.SearchWidth + s.BlockShiftMinX + dx0 < 0 ||
         bx + s.SearchWidth + s.BlockShiftMaxX + dx0 > Reference.width ||
         by - s.SearchWidth + s.BlockShiftMinY + dy0 < 0 ||
         by + s.SearchWidth + s.BlockShiftMaxY + dy0 > Reference.height;
}

// Brings the bar up to 50 k / columns + 1 stars before column k is searched.
static void ShowColumnProgress(int64_t k, int64_t columns, int64_t& stars) {
  for (; stars < 50 * k / columns + 1; stars++) printf("*");
  fflush(stdout);
}

static void SearchBlocks(BlockField& field, int64_t firstX, int64_t firstY) {
  int64_t grid = Settings.GridWidth;
  float step = Settings.BlockShiftStep;
  bool wholeStep = step == std::trunc(step);
  int64_t columns = field.columns;
  int64_t stars = 0;
  for (int64_t k = 0; k < columns; k++) {
    ShowColumnProgress(k, columns, stars);
    int64_t bx = firstX + k * grid;
    for (int64_t l = 0; l < field.rows; l++) {
      int64_t by = firstY + l * grid;
      int64_t index = l * columns + k;
      if (BlockLeavesReference(bx, by)) {
        field.dx[index] = 0;
        field.dy[index] = 0;
        field.score[index] = SKIPPED_BLOCK_SCORE;
        continue;
      }
      // With the symmetric range that "Bloc" sets, a searched block whose
      // range has a trial lies inside Current, so its point fits 32 bits;
      // without a trial the searches return before using the point.
      float dx;
      float dy;
      if (wholeStep)
        field.score[index] = SearchBlockOffset(dx, dy, (int32_t)bx, (int32_t)by);
      else
        field.score[index] = SearchBlockOffsetSubpixel(dx, dy, (int32_t)bx, (int32_t)by);
      field.dx[index] = dx;
      field.dy[index] = dy;
    }
  }
}

// Products of the fractional search beyond this many entries (64 bytes
// each) are not kept: such offset ranges sample pixel by pixel.
static const int64_t PRODUCT_ENTRY_LIMIT = INT64_C(1) << 18;

// Entries the products of one block need: every patch column, every source
// row a trial can read (the patch's rows, the vertical offsets, one row below).
static int64_t ProductEntries(int64_t side, const BlockOffsets& offsets) {
  if (offsets.countY == 0) return 0;  // no trial at all
  double span = (double)offsets.realY[offsets.countY - 1] - (double)offsets.realY[0];
  double entries = (double)side * ((double)side + std::ceil(span) + 3);
  return entries <= (double)PRODUCT_ENTRY_LIMIT ? (int64_t)entries : 0;
}

// The blocks of one column are shared among threads; each writes only its own
// field entry. The stars go out from this thread, before each column, as in
// the straightforward loop.
static void SearchBlocksFast(BlockField& field, int64_t firstX, int64_t firstY,
                             const BlockOffsets& offsets, bool wholeStep) {
  int64_t grid = Settings.GridWidth;
  int64_t side = 2 * (int64_t)Settings.SearchWidth + 1;
  int threads = ThreadCount();
  BlockScratch* scratch = new (std::nothrow) BlockScratch[(size_t)threads];
  if (scratch == nullptr) OutOfMemory();
  for (int t = 0; t < threads; t++) {
    scratch[t].patch = AllocatePixels(side, side);
    scratch[t].row = AllocatePixels(side, 1);
    scratch[t].order = new (std::nothrow) int64_t[(size_t)side];
    scratch[t].energy = new (std::nothrow) uint64_t[(size_t)side];
    if (scratch[t].order == nullptr || scratch[t].energy == nullptr) OutOfMemory();
    scratch[t].products = NewBlockProducts(wholeStep ? 0 : ProductEntries(side, offsets), side);
  }
  int64_t columns = field.columns;
  int64_t stars = 0;
  for (int64_t k = 0; k < columns; k++) {
    ShowColumnProgress(k, columns, stars);
    int64_t bx = firstX + k * grid;
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
    for (int64_t l = 0; l < field.rows; l++) {
      int64_t by = firstY + l * grid;
      int64_t index = l * columns + k;
      float dx = 0;
      float dy = 0;
      float score = SKIPPED_BLOCK_SCORE;
      BlockScratch& mine = scratch[ThreadNumber()];
      if (!BlockLeavesReference(bx, by))
        score = wholeStep ? SearchBlockOffsetFast(dx, dy, bx, by, offsets, mine)
                          : SearchBlockOffsetSubpixelFast(dx, dy, bx, by, offsets, mine);
      field.dx[index] = dx;
      field.dy[index] = dy;
      field.score[index] = score;
    }
  }
  for (int t = 0; t < threads; t++) {
    delete[] scratch[t].patch;
    delete[] scratch[t].row;
    delete[] scratch[t].order;
    delete[] scratch[t].energy;
    ReleaseBlockProducts(scratch[t].products);
  }
  delete[] scratch;
}

// Patches wider than this, and offset lists longer than this, take the
// straightforward searches: their buffers per thread would be large.
static const int64_t FAST_SIDE_LIMIT = 1025;
static const int64_t FAST_OFFSET_LIMIT = INT64_C(1) << 16;

// Reference does not change during a run (the stage hands its colours back),
// so its gradient form can be made once.
static Image ReferenceGradient = {nullptr, 0, 0, 0, 0};
static bool ReferenceGradientReady = false;

void PrepareBlockStage() {
  EndBlockStage();
  if (Kernels.level == KERNEL_REFERENCE) return;
  ReferenceGradient = GradientCopy(Reference);
  ReferenceGradientReady = true;
}

void EndBlockStage() {
  if (!ReferenceGradientReady) return;
  ReleasePixels(ReferenceGradient);
  ReferenceGradientReady = false;
}

void AdjustBlocks() {
  const SettingsRecord& s = Settings;
  if (s.GridWidth <= 0) return;
  float step = s.BlockShiftStep;
  bool wholeStep = step == std::trunc(step);
  BlockOffsets offsets;
  bool fast = Kernels.level != KERNEL_REFERENCE && 2 * (int64_t)s.SearchWidth + 1 <= FAST_SIDE_LIMIT &&
              ListBlockOffsets(offsets, wholeStep, FAST_OFFSET_LIMIT);

  // The colour pictures stay aside while the two pictures hold gradient forms.
  Image currentKept = Current;
  Image referenceKept = Reference;
  if (fast) {
    Current.pixels = GradientCopy(Current).pixels;
    Reference.pixels = ReferenceGradientReady ? ReferenceGradient.pixels : GradientCopy(Reference).pixels;
  } else {
    currentKept = CopyPicture(Current);
    referenceKept = CopyPicture(Reference);
    MakeGradientForm(Current);
    MakeGradientForm(Reference);
  }
  printf("Ajustage par blocs\n");
  printf("Calcul du meilleur ajustage");

  // 64 bits: "Bloc" accepts any 32-bit values, and these sums can pass them.
  int64_t firstX = (int64_t)s.SearchWidth - s.BlockShiftMinX + 1;
  int64_t endX = (int64_t)Current.width - s.SearchWidth - s.BlockShiftMaxX - 1;
  int64_t firstY = (int64_t)s.SearchWidth - s.BlockShiftMinY + 1;
  int64_t endY = (int64_t)Current.height - s.SearchWidth - s.BlockShiftMaxY - 1;
  BlockField field = AllocateField(CountBlocks(firstX, endX, s.GridWidth),
                                   CountBlocks(firstY, endY, s.GridWidth));
  printf(" (%i blocs en largeur %i blocs en hauteur)\n", field.columns, field.rows);
  printf("--------------------------------------------------\n");
  if (fast)
    SearchBlocksFast(field, firstX, firstY, offsets, wholeStep);
  else
    SearchBlocks(field, firstX, firstY);
  printf("\n");
  printf("Deformation de l'image\n");

  ReleasePixels(Current);
  if (!fast || !ReferenceGradientReady) ReleasePixels(Reference);
  Current.pixels = currentKept.pixels;
  Reference.pixels = referenceKept.pixels;
  if (fast) ReleaseBlockOffsets(offsets);

  // An empty grid cannot be interpolated: the picture stays as it was.
  if (field.columns > 0 && field.rows > 0) {
    Image deformed = DeformImage(Current, field, s.GridWidth, s.GridWidth);
    ReleasePixels(Current);
    Current.pixels = deformed.pixels;
  }
  ReleaseField(field);
}
