// Pictures are written to a temporary file beside their final name and renamed
// over it only once complete, so a failed or interrupted write never leaves a
// truncated file and never destroys the file that was there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

struct OutputFile {
  FILE* stream;
  char* path;      // final name, owned
  char* tempPath;  // temporary name in the same directory, owned
  int error;       // errno of the first failure, 0 while all is well
  int64_t written; // bytes written so far
};

// Number of output files that could not be written in this run; a run that
// had any ends with exit status 1.
extern int WriteFailureCount;

// Test seam: when >= 0, a write that would take the file past this many bytes
// fails with ENOSPC, as on a full disk. -1 in normal runs.
extern int64_t OutputFailAfterBytes;

// Creates the temporary file. false on failure (file.error set; nothing to close).
bool OpenOutputFile(OutputFile& file, const char* path);

// Appends bytes; after a first failure further writes are ignored.
void WriteOutput(OutputFile& file, const void* bytes, size_t count);

// Flushes, closes and renames the temporary over the final name. On any
// failure the temporary is removed, the final name is left as it was, and
// false is returned. Releases the names in every case.
bool CloseOutputFile(OutputFile& file);

// Prints "Erreur : impossible d'ecrire le fichier <path> (<reason>)" as a line
// and counts the failure.
void ReportOutputFailure(const char* path, int error);
