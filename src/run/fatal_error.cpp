#include "run/fatal_error.h"

#include <cstdio>
#include <cstdlib>

void FatalError() {
  printf("Erreur fatale, appuyez sur entree.\n");
  printf("Fatal error. Press return.\n");
  fflush(stdout);
  getchar();  // end of input ends the wait as well
  fflush(stdout);
  abort();
}

void OutOfMemory() {
  printf("Erreur : pas assez de memoire \n");
  FatalError();
}
