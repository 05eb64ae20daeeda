#include "register/kernels.h"
#include "run/run_driver.h"

int main(int argc, char** argv) {
  SelectKernels();
  return RunKelvarion(argc, argv);
}
