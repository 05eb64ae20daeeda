// The threads of the fast paths, with or without OpenMP.
#pragma once

#ifdef _OPENMP
#include <omp.h>
#endif

inline int ThreadCount() {
#ifdef _OPENMP
  return omp_get_max_threads();
#else
  return 1;
#endif
}

// 0 .. ThreadCount() - 1 inside a parallel region, 0 outside.
inline int ThreadNumber() {
#ifdef _OPENMP
  return omp_get_thread_num();
#else
  return 0;
#endif
}
