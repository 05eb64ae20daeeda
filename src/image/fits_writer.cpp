// One plane of the composite sum as a FITS primary array: a 2880-byte header of
// 80-character cards, then 16-bit big-endian values, bottom row first, padded
// with zeros to a multiple of 2880 bytes.
#include "image/fits_writer.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "composite/composite.h"
#include "image/output_file.h"
#include "run/run_state.h"
#include "run/settings.h"

static const int64_t FITS_BLOCK = 2880;
static const int32_t MAX_SCALE = 127;  // 255 x 127 is the largest value below 32768

static void WriteRepeated(OutputFile& file, char byte, int64_t count) {
  for (int64_t i = 0; i < count; i++) WriteOutput(file, &byte, 1);
}

static void WriteCard(OutputFile& file, const char* keyword, const char* text) {
  WriteOutput(file, keyword, strlen(keyword));             // keyword
  WriteRepeated(file, ' ', 8 - (int64_t)strlen(keyword));  // blanks to column 8
  WriteOutput(file, "=", 1);                               // value indicator, column 9
  WriteRepeated(file, ' ', 21 - (int64_t)strlen(text));    // blanks before the value
  WriteOutput(file, text, strlen(text));                   // value, ending in column 30
  WriteRepeated(file, ' ', 50);                            // columns 31 to 80
}

void WriteIntCard(OutputFile& file, const char* keyword, int32_t value) {
  char text[16];
  snprintf(text, sizeof text, "%i", value);
  WriteCard(file, keyword, text);
}

void WriteCharCard(OutputFile& file, const char* keyword, char value) {
  char text[2];
  snprintf(text, sizeof text, "%c", value);
  WriteCard(file, keyword, text);
}

static void WriteRows(OutputFile& file, int plane, int32_t scale) {
  int64_t width = Reference.width;
  int64_t count = ImageTable.ImageCount;
  unsigned char* row = new (std::nothrow) unsigned char[(size_t)(2 * width)];
  if (row == nullptr) {
    file.error = ENOMEM;
    return;
  }
  for (int64_t y = (int64_t)Reference.height - 1; y >= 0; y--) {
    const uint32_t* sums = Accumulator + y * width * 3 + plane;
    for (int64_t x = 0; x < width; x++) {
      // Multiply before dividing, in 64 bits so that no sum can overflow the product.
      uint64_t value = count > 0 ? (uint64_t)sums[3 * x] * (uint64_t)scale / (uint64_t)count : 0;
      row[2 * x] = (unsigned char)(value >> 8);
      row[2 * x + 1] = (unsigned char)value;
    }
    WriteOutput(file, row, (size_t)(2 * width));
  }
  delete[] row;
}

static void WriteFitsFile(OutputFile& file, int plane, int32_t scale) {
  WriteCharCard(file, "SIMPLE", 'T');               // standard FITS
  WriteIntCard(file, "BITPIX", 16);                 // signed 16-bit values
  WriteIntCard(file, "NAXIS", 2);                   // a two-dimensional array
  WriteIntCard(file, "NAXIS1", Reference.width);    // values per row
  WriteIntCard(file, "NAXIS2", Reference.height);   // rows
  WriteIntCard(file, "MIPS-HI", 256 * scale);       // top of the value range
  WriteIntCard(file, "MIPS-LO", 0);                 // bottom of the value range
  WriteOutput(file, "END", 3);                      // end of the header
  // Blanks to byte 2880; after a failed write the position stops moving, so stop with it.
  while (file.error == 0 && file.written < FITS_BLOCK) WriteOutput(file, " ", 1);
  WriteRows(file, plane, scale);
  int64_t fill = (FITS_BLOCK - file.written % FITS_BLOCK) % FITS_BLOCK;
  WriteRepeated(file, '\0', fill);                  // zeros to the end of the last block
}

void SaveFitsPlane(const char* path, int plane) {
  int32_t scale = ImageTable.ImageCount < MAX_SCALE ? ImageTable.ImageCount : MAX_SCALE;
  OutputFile file;
  if (!OpenOutputFile(file, path)) {
    ReportOutputFailure(path, file.error);
    return;
  }
  WriteFitsFile(file, plane, scale);
  if (!CloseOutputFile(file)) ReportOutputFailure(path, file.error);
}
