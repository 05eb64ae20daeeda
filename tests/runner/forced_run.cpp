// A test-only way into the program on a chosen path: the program itself has
// no switch for it.
//
//   kelvarion_forced LEVEL THREADS script
//
// LEVEL 0 is the straightforward reference code, 1 SSE2, 2 AVX2. Exits 77 when
// this processor lacks the level.
#include <cstdlib>

#include "register/kernels.h"
#include "run/run_driver.h"

#ifdef _OPENMP
#include <omp.h>
#endif

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  if (!ForceKernelLevel(atoi(argv[1]))) return 77;
#ifdef _OPENMP
  omp_set_num_threads(atoi(argv[2]));
#endif
  char* runArgv[] = {argv[0], argv[3], nullptr};
  return RunKelvarion(2, runArgv);
}
