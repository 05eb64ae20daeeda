// 24-bit BMP writer: 14-byte file header, 40-byte information header, then the
// rows bottom-up, each padded with zeros to a multiple of 4 bytes.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "image/image.h"
#include "image/output_file.h"

// Rows are encoded into one buffer and written together; a picture larger
// than this goes out in several writes of whole rows.
static const int64_t WRITE_BUFFER_BYTES = INT64_C(1) << 25;

static unsigned char* Put16(unsigned char* out, uint32_t value) {
  out[0] = (unsigned char)value;
  out[1] = (unsigned char)(value >> 8);
  return out + 2;
}

static unsigned char* Put32(unsigned char* out, uint32_t value) {
  return Put16(Put16(out, value), value >> 16);
}

static void EncodeHeader(unsigned char* out, const Image& image, int64_t stride) {
  out[0] = 'B';                                        // signature
  out[1] = 'M';
  out = Put32(out + 2, (uint32_t)(54 + stride * image.height));  // file size
  out = Put16(out, 0);                                 // reserved
  out = Put16(out, 0);                                 // reserved
  out = Put32(out, 54);                                // pixel data offset
  out = Put32(out, 40);                                // information header size
  out = Put32(out, (uint32_t)image.width);             // width
  out = Put32(out, (uint32_t)image.height);            // height, rows bottom-up
  out = Put16(out, 1);                                 // colour planes
  out = Put16(out, 24);                                // bits per pixel
  out = Put32(out, 0);                                 // compression
  out = Put32(out, 0);                                 // size of the pixel data
  out = Put32(out, 2840);                              // horizontal pixels per metre
  out = Put32(out, 2840);                              // vertical pixels per metre
  out = Put32(out, 0);                                 // colours used
  Put32(out, 0);                                       // important colours
}

// Stored row r (bottom-up) of image, padded with zeros to stride bytes.
static void EncodeRow(const Image& image, int64_t r, int64_t stride, unsigned char* out) {
  const unsigned char* source = image.pixels + (image.height - 1 - r) * (int64_t)image.width * 4;
  unsigned char* end = out + stride;
  for (int64_t x = 0; x < image.width; x++, source += 4, out += 3) {
    out[0] = source[0];
    out[1] = source[1];
    out[2] = source[2];
  }
  memset(out, 0, (size_t)(end - out));
}

static void WriteBmpFile(OutputFile& file, const Image& image) {
  int64_t dataBytes = (int64_t)image.width * 3;
  int64_t stride = (dataBytes - 1) / 4 * 4 + 4;  // 4 for an empty row
  int64_t rowsPerWrite = (WRITE_BUFFER_BYTES - 54) / stride;
  if (rowsPerWrite < 1) rowsPerWrite = 1;
  if (rowsPerWrite > image.height) rowsPerWrite = image.height;
  unsigned char* buffer = new (std::nothrow) unsigned char[(size_t)(54 + stride * rowsPerWrite)];
  if (buffer == nullptr) {
    file.error = ENOMEM;
    return;
  }
  EncodeHeader(buffer, image, stride);
  int64_t start = 54;  // the header goes out with the first rows
  for (int64_t r = 0; r < image.height || start > 0; start = 0) {
    int64_t rows = image.height - r < rowsPerWrite ? image.height - r : rowsPerWrite;
    for (int64_t k = 0; k < rows; k++) EncodeRow(image, r + k, stride, buffer + start + k * stride);
    WriteOutput(file, buffer, (size_t)(start + rows * stride));
    r += rows;
  }
  delete[] buffer;
}

void SaveBmp(const Image& image, const char* path) {
  printf("Sauvegarde d'une image %s", path);
  OutputFile file;
  if (!OpenOutputFile(file, path)) {
    printf("\n");
    ReportOutputFailure(path, file.error);
    return;
  }
  WriteBmpFile(file, image);
  if (!CloseOutputFile(file)) {
    printf("\n");
    ReportOutputFailure(path, file.error);
    return;
  }
  printf(" FIN\n");
}
