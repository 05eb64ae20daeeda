// Every vector twin against its reference, one instruction set at a time:
// seeded random inputs with a share of extreme ones, every width up to three
// vector widths and beyond, unaligned buffers, guard bytes around every
// output. The seed is printed on a failure; KELVARION_CHECK_SEED replays
// another.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "blocks/block_products.h"
#include "blocks/deform_row.h"
#include "register/kernels.h"
#include "test_pictures.h"

namespace {

const int GUARD = 64;
const unsigned char GUARD_BYTE = 0xA5;

uint32_t Seed() {
  const char* text = getenv("KELVARION_CHECK_SEED");
  return text != nullptr ? (uint32_t)strtoul(text, nullptr, 10) : 7u;
}

// One in four pictures flat (every blend should give back the same byte), one
// in eight all 0 or all 255, the others random.
TestPicture Source(uint32_t& state) {
  int32_t w = 1 + NextRandom(state) % 40, h = 1 + NextRandom(state) % 30;
  TestPicture picture = MakePicture(w, h, NextRandom(state) % (w + 1), NextRandom(state) % (h + 1));
  uint32_t kind = NextRandom(state) % 8;
  if (kind == 3) kind = 0;
  unsigned char flat = (unsigned char)(NextRandom(state) % 256);
  for (unsigned char& byte : picture.bytes) {
    if (kind == 0) byte = flat;
    else if (kind == 1) byte = (NextRandom(state) % 2) * 255;
    else if (kind == 2) byte = 255;
    else byte = (unsigned char)(NextRandom(state) % 256);
  }
  return picture;
}

double Fraction(uint32_t& state) {
  const double nasty[] = {0.1, 0.3, 0.7, 0.9, 1.0 / 3, 2.0 / 3, 0.5, 0.25, 0.0, 0.999999};
  double value = NextRandom(state) % 2 ? nasty[NextRandom(state) % 10] : (NextRandom(state) % 100000) / 1e5;
  return NextRandom(state) % 4 == 0 ? -value : value;
}

struct RowCase {
  TestPicture source;
  int64_t u0, v, n;
  float c, s, dx, dy, ox;
  double wy;
};

RowCase MakeCase(uint32_t& state) {
  RowCase k{Source(state), 0, 0, 0, 0, 0, 0, 0, 0, 0};
  k.n = NextRandom(state) % 37;
  k.u0 = (int64_t)(NextRandom(state) % 70) - 45;
  k.v = (int64_t)(NextRandom(state) % 50) - 25;
  float angle = NextRandom(state) % 3 == 0 ? 0.0f : (float)Fraction(state);
  // Angles so small that the positions need more than a double's bits.
  if (NextRandom(state) % 4 == 0) angle *= 1e-20f;
  k.c = (float)cos((double)angle);
  k.s = (float)sin((double)angle);
  k.dx = (float)((int)(NextRandom(state) % 9) - 4);
  k.dy = (float)((int)(NextRandom(state) % 9) - 4);
  k.ox = (float)((int)(NextRandom(state) % 7) - 3 + Fraction(state));
  k.wy = Fraction(state);
  return k;
}

// Calls the kernel of the given level for a case, writing n pixels at out.
typedef void (*RunKernel)(int level, const RowCase& k, unsigned char* out);

void RunRotated(int level, const RowCase& k, unsigned char* out) {
  RotatedRowKernel kernel = level == KERNEL_AVX2 ? SampleRotatedRowAvx2 : SampleRotatedRowReference;
  kernel(k.source.image, k.c, k.s, k.u0, k.v, k.n, out);
}

void RunTransform(int level, const RowCase& k, unsigned char* out) {
  TransformRowKernel kernel = level == KERNEL_AVX2 ? TransformRowAvx2 : TransformRowReference;
  // Half the cases turn by a double angle, whose positions carry more bits.
  bool turned = k.v % 2 != 0;
  double c = turned ? cos((double)k.ox) : (double)k.c;
  double s = turned ? sin((double)k.ox) : (double)k.s;
  kernel(k.source.image, c, s, k.dx + (float)k.wy, k.dy + k.ox, k.u0, k.v, k.n, out);
}

void RunBlockRow(int level, const RowCase& k, unsigned char* out) {
  BlockRowKernel kernel = level == KERNEL_AVX2 ? SampleBlockRowAvx2 : SampleBlockRowReference;
  kernel(k.source.image, k.u0 / 3, k.v / 2, k.wy, k.ox, k.u0 % 5, k.n, out);
}

// The fractional block search's rows finished from shared horizontal
// products, against the pixel-by-pixel reference.
void RunProductsRow(int level, const RowCase& k, unsigned char* out) {
  int64_t bx = k.u0 / 3, y = k.v / 2, first = k.u0 % 5;
  if (level == KERNEL_REFERENCE) {
    SampleBlockRowReference(k.source.image, bx, y, k.wy, k.ox, first, k.n, out);
    return;
  }
  BlockProducts products = NewBlockProducts(3 * 64, 64);
  bool avx2 = level == KERNEL_AVX2;
  if (!FillBlockProducts(products, k.source.image, bx, k.ox, first, k.n, y - 1, y + 1) ||
      !(avx2 ? SampleRowFromProductsAvx2 : SampleRowFromProducts)(products, k.source.image, y, k.wy, out))
    memset(out, 0x5A, (size_t)k.n * 4);  // cannot happen: shows as a mismatch
  ReleaseBlockProducts(products);
}

// A field of a few blocks with offsets of a few pixels, some of them reaching
// past the picture, over columns 1 .. 75.
void RunDeformRow(int level, const RowCase& k, unsigned char* out) {
  uint32_t state = (uint32_t)(k.u0 * 7919 + k.v * 104729 + k.n);
  const int64_t columns = 1 + NextRandom(state) % 4, rows = 1 + NextRandom(state) % 3;
  std::vector<float> dx(16), dy(16);
  for (size_t i = 0; i < dx.size(); i++) {
    dx[i] = (float)((int)(NextRandom(state) % 7) - 3 + Fraction(state));
    dy[i] = (float)((int)(NextRandom(state) % 7) - 3 + Fraction(state));
  }
  BlockField field = {dx.data(), dy.data(), nullptr, (int32_t)columns, (int32_t)rows};
  int64_t cell = 3 + NextRandom(state) % 9;
  std::vector<FieldPlace> places(80);
  for (int64_t x = 0; x < 80; x++) places[x] = PlaceInField(x, cell, columns);
  DeformRowKernel kernel = level == KERNEL_AVX2 ? DeformRowAvx2 : DeformRowReference;
  int64_t y = (k.v + 25) % (k.source.image.height + 4);
  kernel(k.source.image, field, places.data(), PlaceInField(y, cell, rows), y, k.u0 % 20 + 20, k.n,
         out);
}

struct KernelRow {
  const char* name;
  RunKernel run;
  int level;  // the twin's level
};

TEST(KernelAgreement, ResamplingRowsWriteTheReferenceBytes) {
  const KernelRow kernels[] = {
      {"rotated row", RunRotated, KERNEL_AVX2},
      {"transform row", RunTransform, KERNEL_AVX2},
      {"block row", RunBlockRow, KERNEL_AVX2},
      {"deformation row", RunDeformRow, KERNEL_AVX2},
      {"block row from products", RunProductsRow, KERNEL_SSE2},
      {"block row from products, AVX2", RunProductsRow, KERNEL_AVX2},
  };
  uint32_t seed = Seed();
  for (const KernelRow& kernel : kernels) {
    if (!KernelLevelAvailable(kernel.level)) continue;
    uint32_t state = seed;
    for (int round = 0; round < 20000; round++) {
      RowCase k = MakeCase(state);
      std::vector<unsigned char> expected(k.n * 4 + 2 * GUARD, GUARD_BYTE);
      std::vector<unsigned char> got(expected.size(), GUARD_BYTE);
      std::vector<unsigned char> before = k.source.bytes;
      kernel.run(KERNEL_REFERENCE, k, expected.data() + GUARD);
      kernel.run(kernel.level, k, got.data() + GUARD);
      ASSERT_EQ(k.source.bytes, before) << kernel.name << ": the source was written";
      for (size_t i = 0; i < got.size(); i++)
        ASSERT_EQ(got[i], expected[i])
            << kernel.name << ", level " << kernel.level << ", seed " << seed << ", round " << round
            << ", byte " << (long)i - GUARD << " (pixel " << ((long)i - GUARD) / 4 << " of " << k.n
            << "), source " << k.source.image.width << " x " << k.source.image.height
            << ((i < GUARD || i >= got.size() - GUARD) ? " (guard byte)" : "");
    }
  }
}

// Pair sums: 1 in 8 inputs extreme (all 0, all 255, all empty, alternating or
// one-sided empty weights, weights 1 and 127, maximal differences).
void FillPairs(std::vector<unsigned char>& a, std::vector<unsigned char>& b, uint32_t& state) {
  uint32_t kind = NextRandom(state) % 16;
  for (size_t i = 0; i < a.size(); i++) {
    bool weight = i % 4 == 3;
    unsigned char x = (unsigned char)NextRandom(state), y = (unsigned char)NextRandom(state);
    switch (kind) {
      case 0: x = y = 0; break;
      case 1: x = y = 255; break;
      case 2: if (weight) x = y = 0; break;
      case 3: if (weight) x = (i / 4) % 2 ? 0 : 255, y = (i / 8) % 2 ? 255 : 0; break;
      case 4: if (weight) x = 0; break;
      case 5: if (weight) y = 0; break;
      case 6: if (weight) x = 1, y = 127; break;
      case 7: x = weight ? 255 : 0, y = 255; break;
      default: if (weight && NextRandom(state) % 4 == 0) x = 0;
    }
    a[i] = x;
    b[i] = y;
  }
}

struct GuardedSums {
  unsigned char before[GUARD];
  PairSums sums;
  unsigned char after[GUARD];
};

TEST(KernelAgreement, PairSumsEqualTheReference) {
  struct Twin {
    const char* name;
    int level;
    PairSumsKernel kernel;
  } twins[] = {{"SSE2", KERNEL_SSE2, SumPairsSse2}, {"AVX2", KERNEL_AVX2, SumPairsAvx2}};
  uint32_t seed = Seed();
  for (const Twin& twin : twins) {
    if (!KernelLevelAvailable(twin.level)) continue;
    ASSERT_TRUE(ForceKernelLevel(twin.level));
    uint32_t state = seed;
    for (int round = 0; round < 4000; round++) {
      int64_t n = round < 3000 ? round % 26 : (int64_t[]){100, 1000, 4099, 333}[round % 4];
      size_t offset = NextRandom(state) % 32;  // any byte alignment
      std::vector<unsigned char> a(offset + n * 4), b(offset + n * 4 + 7);
      FillPairs(a, b, state);
      std::vector<unsigned char> a0 = a, b0 = b;
      PairSums expected;
      SumPairsReference(a.data() + offset, b.data() + offset + 7, n, &expected);
      for (PairSumsKernel kernel : {twin.kernel, Kernels.SumPairs}) {
        GuardedSums got;
        memset(&got, GUARD_BYTE, sizeof got);
        kernel(a.data() + offset, b.data() + offset + 7, n, &got.sums);
        ASSERT_TRUE(got.sums.s1 == expected.s1 && got.sums.s2 == expected.s2 &&
                    got.sums.empty == expected.empty)
            << twin.name << ", seed " << seed << ", round " << round << ", n " << n << ", offset "
            << offset << ": S1 " << got.sums.s1 << " / " << expected.s1 << ", S2 " << got.sums.s2
            << " / " << expected.s2 << ", empty " << got.sums.empty << " / " << expected.empty;
        for (int g = 0; g < GUARD; g++)
          ASSERT_TRUE(got.before[g] == GUARD_BYTE && got.after[g] == GUARD_BYTE) << twin.name;
        ASSERT_TRUE(a == a0 && b == b0) << twin.name << ": an input was written";
      }
    }
  }
  ForceKernelLevel(KERNEL_REFERENCE);
}

// The longest run a kernel takes, every pair at the largest v: S2 near 2^58.
TEST(KernelAgreement, PairSumsHoldTheLongestRun) {
  std::vector<unsigned char> a((size_t)MAX_RUN_PAIRS * 4, 0), b(a.size(), 255);
  for (size_t i = 3; i < a.size(); i += 4) a[i] = 255;
  const uint64_t v = 585225;
  for (PairSumsKernel kernel : {SumPairsReference, SumPairsSse2, SumPairsAvx2}) {
    if (kernel == SumPairsAvx2 && !KernelLevelAvailable(KERNEL_AVX2)) continue;
    if (kernel == SumPairsSse2 && !KernelLevelAvailable(KERNEL_SSE2)) continue;
    PairSums sums;
    kernel(a.data(), b.data(), MAX_RUN_PAIRS, &sums);
    EXPECT_EQ(sums.s1, v * (uint64_t)MAX_RUN_PAIRS);
    EXPECT_EQ(sums.s2, v * v * (uint64_t)MAX_RUN_PAIRS);
    EXPECT_EQ(sums.empty, 0u);
  }
}

}  // namespace
