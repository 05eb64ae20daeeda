// Colour table of 8-bit BMP files.
#pragma once

#include <cstdint>
#include <cstdio>

// An 8-bit index reaches no further than 256 entries of 4 bytes.
static const int32_t MAX_PALETTE_ENTRIES = 256;

struct Palette {
  unsigned char entries[MAX_PALETTE_ENTRIES * 4];  // blue, green, red, unused
  int32_t count;
};

// Reads the table starting at byte start: coloursUsed entries when 1 to 256,
// else 256. false when the entries do not all lie within the file.
bool ReadPalette(Palette& palette, FILE* file, int64_t fileSize, int64_t start,
                 uint32_t coloursUsed);

// Turns one stored row of indices into width pixels of 4 bytes, weight 255.
void DecodePaletteRow(const Palette& palette, const unsigned char* row, int32_t width,
                      unsigned char* pixels);
