#include "image/image.h"
#include "register/kernels.h"
#include "run/run_driver.h"

int main(int argc, char** argv) {
  KeepLargeBuffers();
  SelectKernels();
  return RunKelvarion(argc, argv);
}
