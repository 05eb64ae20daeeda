#include "register/kernels.h"

KernelTable Kernels = {KERNEL_REFERENCE, SumPairsReference, SampleRotatedRowReference,
                       TransformRowReference, SampleBlockRowReference};

#if defined(__x86_64__) || defined(__i386__)
#define KELVARION_X86 1
#else
#define KELVARION_X86 0
#endif

bool KernelLevelAvailable(int level) {
  if (level == KERNEL_REFERENCE) return true;
#if KELVARION_X86
  __builtin_cpu_init();
  if (level == KERNEL_SSE2) return __builtin_cpu_supports("sse2");
  if (level == KERNEL_AVX2) return __builtin_cpu_supports("avx2");
#endif
  return false;
}

// The ladder: each level includes the ones below it.
static void FillTable(int level) {
  Kernels.level = KERNEL_REFERENCE;
  Kernels.SumPairs = SumPairsReference;
  Kernels.SampleRotatedRow = SampleRotatedRowReference;
  Kernels.TransformRow = TransformRowReference;
  Kernels.SampleBlockRow = SampleBlockRowReference;
#if KELVARION_X86
  if (level >= KERNEL_SSE2) {
    Kernels.level = KERNEL_SSE2;
    Kernels.SumPairs = SumPairsSse2;
  }
  if (level >= KERNEL_AVX2) {
    Kernels.level = KERNEL_AVX2;
    Kernels.SumPairs = SumPairsAvx2;
    Kernels.SampleRotatedRow = SampleRotatedRowAvx2;
    Kernels.TransformRow = TransformRowAvx2;
    Kernels.SampleBlockRow = SampleBlockRowAvx2;
  }
#endif
}

void SelectKernels() {
  int level = KERNEL_REFERENCE;
  while (level < KERNEL_AVX2 && KernelLevelAvailable(level + 1)) level++;
  FillTable(level);
}

bool ForceKernelLevel(int level) {
  if (level < KERNEL_REFERENCE || level > KERNEL_AVX2 || !KernelLevelAvailable(level)) return false;
  FillTable(level);
  return true;
}
