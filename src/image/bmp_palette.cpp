#include "image/bmp_palette.h"

#include <sys/types.h>

bool ReadPalette(Palette& palette, FILE* file, int64_t fileSize, int64_t start,
                 uint32_t coloursUsed) {
  // 0 means a full table, and a larger count cannot be indexed anyway.
  int32_t count = coloursUsed >= 1 && coloursUsed <= (uint32_t)MAX_PALETTE_ENTRIES
                      ? (int32_t)coloursUsed
                      : MAX_PALETTE_ENTRIES;
  if (start + (int64_t)count * 4 > fileSize) return false;
  if (fseeko(file, (off_t)start, SEEK_SET) != 0) return false;
  if (fread(palette.entries, 1, (size_t)count * 4, file) != (size_t)count * 4) return false;
  palette.count = count;
  return true;
}

void DecodePaletteRow(const Palette& palette, const unsigned char* row, int32_t width,
                      unsigned char* pixels) {
  static const unsigned char BLACK[3] = {0, 0, 0};
  for (int64_t x = 0; x < width; x++, pixels += 4) {
    const unsigned char* entry = row[x] < palette.count ? palette.entries + 4 * row[x] : BLACK;
    pixels[0] = entry[0];
    pixels[1] = entry[1];
    pixels[2] = entry[2];
    pixels[3] = 255;
  }
}
