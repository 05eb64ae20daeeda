// The parameters and the list of images that the script sets.
#pragma once

#include "run/float_model.h"

#include <cstdint>

constexpr int MAX_IMAGES = 30000;  // slot 0 stays empty: at most 29999 images
constexpr int MAX_IMAGE_COUNT = MAX_IMAGES - 1;

struct SettingsRecord {
  float AngleMin;         // radians
  float AngleMax;         // radians
  float AngleResolution;  // radians
  int32_t ShiftMinX;
  int32_t ShiftMaxX;
  int32_t ShiftMinY;
  int32_t ShiftMaxY;
  int32_t ShiftStep;
  int32_t GridWidth;
  int32_t SearchWidth;
  int32_t BlockShiftMinX;
  int32_t BlockShiftMaxX;
  int32_t BlockShiftMinY;
  int32_t BlockShiftMaxY;
  float BlockShiftStep;
  int32_t TranslationFraction;
  int32_t NoFinalPause;
  const char* ScriptPath;  // set by the run driver before the parse; any length
};

struct ImageTableRecord {
  char* SourceNames[MAX_IMAGES];  // owned copies, null when absent
  char* ResultNames[MAX_IMAGES];
  int32_t ImageX0[MAX_IMAGES];
  int32_t ImageY0[MAX_IMAGES];
  int32_t ImageX0Given[MAX_IMAGES];
  int32_t ImageY0Given[MAX_IMAGES];
  char* ReferenceName;  // owned, null when absent
  int32_t RefX0;
  int32_t RefY0;
  int32_t RefX0Given;
  int32_t RefY0Given;
  char* CompositeName;  // owned, null when absent: no compositing
  int32_t ImageCount;
};

extern SettingsRecord Settings;
extern ImageTableRecord ImageTable;

// Reads the script named by Settings.ScriptPath, echoes every command and fills
// Settings and ImageTable. Fatal errors do not return.
void ParseScript();

// Releases every text the table owns and returns it to its zero state.
void ReleaseImageTable();
