// BMP reader: 24-bit pictures, and 8-bit ones through their colour table.
// Every size in the header is checked against the file before anything is
// allocated or read, so a forged header can neither read past the end nor ask
// for a huge array.
#include <cstdint>
#include <cstdio>
#include <new>
#include <sys/stat.h>
#include <sys/types.h>

#include "image/bmp_palette.h"
#include "image/image.h"
#include "run/fatal_error.h"

static const int BMP_HEADER_BYTES = 54;
static const int PALETTE_WARNING_LINES = 100;

struct BmpHeader {
  int64_t dataOffset;
  int64_t paletteStart;  // the colour table follows the information header
  int32_t width;
  int32_t height;        // negative: rows stored top-down
  uint32_t depth;
  uint32_t compression;
  uint32_t coloursUsed;
};

static uint32_t Le16(const unsigned char* bytes) {
  return (uint32_t)bytes[0] | (uint32_t)bytes[1] << 8;
}

static uint32_t Le32(const unsigned char* bytes) {
  return Le16(bytes) | Le16(bytes + 2) << 16;
}

static BmpHeader ParseHeader(const unsigned char* bytes) {
  BmpHeader header;
  header.dataOffset = Le32(bytes + 10);
  header.paletteStart = 14 + (int64_t)Le32(bytes + 14);
  header.width = (int32_t)Le32(bytes + 18);
  header.height = (int32_t)Le32(bytes + 22);
  header.depth = Le16(bytes + 28);
  header.compression = Le32(bytes + 30);
  header.coloursUsed = Le32(bytes + 46);
  return header;
}

[[noreturn]] static void RefuseTruncated(const char* path) {
  printf("Erreur : fichier BMP tronque ou invalide : %s\n", path);
  FatalError();
}

// Opens only regular files: a directory would open, and a pipe would block.
static FILE* OpenRegularFile(const char* path, int64_t& size) {
  struct stat status;
  if (stat(path, &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  FILE* file = fopen(path, "rb");
  if (file == nullptr) return nullptr;
  if (fstat(fileno(file), &status) != 0 || !S_ISREG(status.st_mode)) {
    fclose(file);
    return nullptr;
  }
  size = (int64_t)status.st_size;
  return file;
}

// Bytes of a stored row: n rounded up to a multiple of 4, and 4 for n = 0.
static int64_t RowStride(int64_t dataBytes) {
  return (dataBytes - 1) / 4 * 4 + 4;
}

// Division instead of a product: stride x rows can exceed 64 bits.
static bool RowsFitFile(int64_t offset, int64_t stride, int64_t rows, int64_t fileSize) {
  if (offset > fileSize) return false;
  return rows <= (fileSize - offset) / stride;
}

static void DecodeRgbRow(const unsigned char* row, int64_t width, unsigned char* pixels) {
  for (int64_t x = 0; x < width; x++, row += 3, pixels += 4) {
    pixels[0] = row[0];
    pixels[1] = row[1];
    pixels[2] = row[2];
    pixels[3] = 255;
  }
}

static void DecodeRow(const BmpHeader& header, const Palette& palette, int32_t rows, int32_t r,
                      const unsigned char* row, unsigned char* pixels) {
  int64_t memoryRow = header.height < 0 ? r : (int64_t)rows - 1 - r;
  unsigned char* target = pixels + memoryRow * header.width * 4;
  if (header.depth == 8)
    DecodePaletteRow(palette, row, header.width, target);
  else
    DecodeRgbRow(row, header.width, target);
}

// All rows in one read when memory allows (the size was checked against the
// file), else one row at a time.
static void ReadRows(FILE* file, const char* path, const BmpHeader& header, const Palette& palette,
                     int64_t stride, int32_t rows, unsigned char* pixels) {
  int64_t total = stride * rows;
  unsigned char* data = new (std::nothrow) unsigned char[(size_t)total];
  int32_t rowsPerRead = data != nullptr ? rows : 1;
  if (data == nullptr) data = new (std::nothrow) unsigned char[(size_t)stride];
  if (data == nullptr) OutOfMemory();
  if (fseeko(file, (off_t)header.dataOffset, SEEK_SET) != 0) RefuseTruncated(path);
  for (int32_t r = 0; r < rows; r += rowsPerRead) {
    size_t bytes = (size_t)(stride * rowsPerRead);
    if (fread(data, 1, bytes, file) != bytes) RefuseTruncated(path);
    for (int32_t k = 0; k < rowsPerRead; k++)
      DecodeRow(header, palette, rows, r + k, data + stride * k, pixels);
  }
  delete[] data;
}

int LoadImage(Image& image, const char* path) {
  printf("Chargement du fichier %s", path);
  int64_t fileSize = 0;
  FILE* file = OpenRegularFile(path, fileSize);
  if (file == nullptr) {
    printf("Erreur : impossible d'ouvrir l'image %s\n", path);
    return 1;
  }
  unsigned char bytes[BMP_HEADER_BYTES];
  if (fread(bytes, 1, BMP_HEADER_BYTES, file) != BMP_HEADER_BYTES) RefuseTruncated(path);
  BmpHeader header = ParseHeader(bytes);
  if (header.compression != 0) {
    printf("Fichier BMP compresse: chargement impossible\n");
    FatalError();
  }
  if (header.width < 0) {
    printf("Erreur : largeur d'image negative : %s\n", path);
    FatalError();
  }
  Palette palette;
  palette.count = 0;
  if (header.depth == 8) {
    for (int line = 0; line < PALETTE_WARNING_LINES; line++)
      printf("La sauvegarde en N&B n'est pas encore possible\n");
    if (!ReadPalette(palette, file, fileSize, header.paletteStart, header.coloursUsed))
      RefuseTruncated(path);
  } else if (header.depth != 24) {
    printf("Erreur fatale: mode d'image non supporte\n");
    FatalError();
  }
  // The absolute value of INT32_MIN does not fit: no file can hold that many rows here.
  if (header.height == INT32_MIN) RefuseTruncated(path);
  int32_t rows = header.height < 0 ? -header.height : header.height;
  int64_t stride = RowStride((int64_t)header.width * (header.depth / 8));
  if (!RowsFitFile(header.dataOffset, stride, rows, fileSize)) RefuseTruncated(path);

  unsigned char* pixels = AllocatePixels(header.width, rows);
  ReadRows(file, path, header, palette, stride, rows, pixels);
  fclose(file);
  image.pixels = pixels;
  image.width = header.width;
  image.height = rows;
  return 0;
}
