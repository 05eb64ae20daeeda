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

// Values are encoded into one buffer and written together; a plane larger
// than this goes out in several writes of whole rows.
static const int64_t WRITE_BUFFER_BYTES = INT64_C(1) << 25;

// One card at out (80 bytes): keyword, blanks to column 8, "=" in column 9,
// the value right-aligned to column 30, blanks to column 80.
static void EncodeCard(char* out, const char* keyword, const char* text) {
  memset(out, ' ', 80);
  memcpy(out, keyword, strlen(keyword));          // keyword
  out[8] = '=';                                   // value indicator, column 9
  memcpy(out + 30 - strlen(text), text, strlen(text));  // value, ending in column 30
}

static void EncodeIntCard(char* out, const char* keyword, int32_t value) {
  char text[16];
  snprintf(text, sizeof text, "%i", value);
  EncodeCard(out, keyword, text);
}

// The 2880-byte header block: the cards, "END", blanks.
static void EncodeHeader(char* out, int32_t scale) {
  memset(out, ' ', (size_t)FITS_BLOCK);
  EncodeCard(out, "SIMPLE", "T");                  // standard FITS
  EncodeIntCard(out + 80, "BITPIX", 16);           // signed 16-bit values
  EncodeIntCard(out + 160, "NAXIS", 2);            // a two-dimensional array
  EncodeIntCard(out + 240, "NAXIS1", Reference.width);   // values per row
  EncodeIntCard(out + 320, "NAXIS2", Reference.height);  // rows
  EncodeIntCard(out + 400, "MIPS-HI", 256 * scale);      // top of the value range
  EncodeIntCard(out + 480, "MIPS-LO", 0);          // bottom of the value range
  memcpy(out + 560, "END", 3);                     // end of the header
}

// Row y of the plane as big-endian 16-bit values.
static void EncodeRow(int64_t y, int plane, int32_t scale, unsigned char* out) {
  int64_t width = Reference.width;
  uint64_t count = (uint64_t)ImageTable.ImageCount;
  const uint32_t* sums = Accumulator + y * width * 3 + plane;
  for (int64_t x = 0; x < width; x++, sums += 3, out += 2) {
    // Multiply before dividing, in 64 bits so that no sum can overflow the product.
    uint64_t value = count > 0 ? (uint64_t)*sums * (uint64_t)scale / count : 0;
    out[0] = (unsigned char)(value >> 8);
    out[1] = (unsigned char)value;
  }
}

static void WriteFitsFile(OutputFile& file, int plane, int32_t scale) {
  int64_t rowBytes = 2 * (int64_t)Reference.width;
  int64_t height = Reference.height;
  int64_t rowsPerWrite = rowBytes > 0 ? WRITE_BUFFER_BYTES / rowBytes : height;
  if (rowsPerWrite < 1) rowsPerWrite = 1;
  if (rowsPerWrite > height) rowsPerWrite = height;
  // Room for the header with the first rows, or for the zeros after the last.
  unsigned char* buffer =
      new (std::nothrow) unsigned char[(size_t)(FITS_BLOCK + rowBytes * rowsPerWrite)];
  if (buffer == nullptr) {
    file.error = ENOMEM;
    return;
  }
  EncodeHeader((char*)buffer, scale);
  int64_t start = FITS_BLOCK;
  for (int64_t done = 0; done < height;) {  // bottom row first
    int64_t rows = height - done < rowsPerWrite ? height - done : rowsPerWrite;
    for (int64_t k = 0; k < rows; k++)
      EncodeRow(height - 1 - (done + k), plane, scale, buffer + start + k * rowBytes);
    int64_t bytes = start + rows * rowBytes;
    done += rows;
    // Zeros to the end of the last block go out with the last rows.
    int64_t fill = done < height ? 0 : (FITS_BLOCK - (file.written + bytes) % FITS_BLOCK) % FITS_BLOCK;
    if (fill > rowBytes * rowsPerWrite + FITS_BLOCK - bytes) {
      WriteOutput(file, buffer, (size_t)bytes);
      bytes = 0;
    }
    memset(buffer + bytes, 0, (size_t)fill);
    WriteOutput(file, buffer, (size_t)(bytes + fill));
    start = 0;
  }
  if (height == 0) WriteOutput(file, buffer, (size_t)FITS_BLOCK);
  delete[] buffer;
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
