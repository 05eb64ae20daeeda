// 24-bit BMP writer: 14-byte file header, 40-byte information header, then the
// rows bottom-up, each padded with zeros to a multiple of 4 bytes.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "image/image.h"
#include "image/output_file.h"

static void Put16(OutputFile& file, uint32_t value) {
  unsigned char bytes[2] = {(unsigned char)value, (unsigned char)(value >> 8)};
  WriteOutput(file, bytes, 2);
}

static void Put32(OutputFile& file, uint32_t value) {
  unsigned char bytes[4] = {(unsigned char)value, (unsigned char)(value >> 8),
                            (unsigned char)(value >> 16), (unsigned char)(value >> 24)};
  WriteOutput(file, bytes, 4);
}

static void WriteBmpFile(OutputFile& file, const Image& image) {
  int64_t dataBytes = (int64_t)image.width * 3;
  int64_t stride = (dataBytes - 1) / 4 * 4 + 4;  // 4 for an empty row
  WriteOutput(file, "BM", 2);                                // signature
  Put32(file, (uint32_t)(54 + stride * image.height));       // file size
  Put16(file, 0);                                            // reserved
  Put16(file, 0);                                            // reserved
  Put32(file, 54);                                           // pixel data offset
  Put32(file, 40);                                           // information header size
  Put32(file, (uint32_t)image.width);                        // width
  Put32(file, (uint32_t)image.height);                       // height, rows bottom-up
  Put16(file, 1);                                            // colour planes
  Put16(file, 24);                                           // bits per pixel
  Put32(file, 0);                                            // compression
  Put32(file, 0);                                            // size of the pixel data
  Put32(file, 2840);                                         // horizontal pixels per metre
  Put32(file, 2840);                                         // vertical pixels per metre
  Put32(file, 0);                                            // colours used
  Put32(file, 0);                                            // important colours

  unsigned char* row = new (std::nothrow) unsigned char[(size_t)stride];
  if (row == nullptr) {
    file.error = ENOMEM;
    return;
  }
  memset(row, 0, (size_t)stride);
  for (int64_t r = 0; r < image.height; r++) {
    const unsigned char* source = image.pixels + (image.height - 1 - r) * (int64_t)image.width * 4;
    for (int64_t x = 0; x < image.width; x++) {
      row[3 * x] = source[4 * x];
      row[3 * x + 1] = source[4 * x + 1];
      row[3 * x + 2] = source[4 * x + 2];
    }
    WriteOutput(file, row, (size_t)stride);
  }
  delete[] row;
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
