#include "image/output_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

int WriteFailureCount = 0;
int64_t OutputFailAfterBytes = -1;

static char* CopyText(const char* text, const char* suffix) {
  size_t length = strlen(text);
  size_t suffixLength = strlen(suffix);
  char* copy = (char*)malloc(length + suffixLength + 1);
  if (copy == nullptr) return nullptr;
  memcpy(copy, text, length);
  memcpy(copy + length, suffix, suffixLength + 1);
  return copy;
}

static void ReleaseNames(OutputFile& file) {
  free(file.path);
  free(file.tempPath);
  file.path = nullptr;
  file.tempPath = nullptr;
}

bool OpenOutputFile(OutputFile& file, const char* path) {
  file.stream = nullptr;
  file.error = 0;
  file.written = 0;
  file.path = CopyText(path, "");
  file.tempPath = CopyText(path, ".tmpXXXXXX");
  if (file.path == nullptr || file.tempPath == nullptr) {
    file.error = ENOMEM;
    ReleaseNames(file);
    return false;
  }
  int descriptor = mkstemp(file.tempPath);
  if (descriptor < 0) {
    file.error = errno;
    ReleaseNames(file);
    return false;
  }
  // mkstemp creates the file private; give it the mode a plain create would.
  mode_t mask = umask(0);
  umask(mask);
  fchmod(descriptor, 0666 & ~mask);
  file.stream = fdopen(descriptor, "wb");
  if (file.stream == nullptr) {
    file.error = errno;
    close(descriptor);
    unlink(file.tempPath);
    ReleaseNames(file);
    return false;
  }
  return true;
}

void WriteOutput(OutputFile& file, const void* bytes, size_t count) {
  if (file.error != 0 || count == 0) return;
  if (OutputFailAfterBytes >= 0 && file.written + (int64_t)count > OutputFailAfterBytes) {
    file.error = ENOSPC;
    return;
  }
  if (fwrite(bytes, 1, count, file.stream) != count) {
    file.error = errno != 0 ? errno : EIO;
    return;
  }
  file.written += (int64_t)count;
}

bool CloseOutputFile(OutputFile& file) {
  if (file.error == 0 && fflush(file.stream) != 0) file.error = errno;
  if (fclose(file.stream) != 0 && file.error == 0) file.error = errno;
  file.stream = nullptr;
  if (file.error == 0 && rename(file.tempPath, file.path) != 0) file.error = errno;
  if (file.error != 0) unlink(file.tempPath);
  ReleaseNames(file);
  return file.error == 0;
}

void ReportOutputFailure(const char* path, int error) {
  printf("Erreur : impossible d'ecrire le fichier %s (%s)\n", path, strerror(error));
  WriteFailureCount++;
}
