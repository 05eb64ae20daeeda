#include "run/settings.h"

#include <cstring>

#include "run/script_commands.h"

SettingsRecord Settings;
ImageTableRecord ImageTable;

// NoFinalPause and ScriptPath belong to the run driver and are left alone.
void SetDefaultSettings() {
  Settings.AngleMin = 0.0f;
  Settings.AngleMax = 0.0f;
  Settings.AngleResolution = 1.0f;
  Settings.ShiftMinX = 0;
  Settings.ShiftMaxX = 0;
  Settings.ShiftMinY = 0;
  Settings.ShiftMaxY = 0;
  Settings.ShiftStep = 1;
  Settings.GridWidth = 0;
  Settings.SearchWidth = 0;
  Settings.BlockShiftMinX = 0;
  Settings.BlockShiftMaxX = 0;
  Settings.BlockShiftMinY = 0;
  Settings.BlockShiftMaxY = 0;
  Settings.BlockShiftStep = 1.0f;
  Settings.TranslationFraction = 6;
}

// Slots past ImageCount may still hold names left by an incomplete "Source"
// line, so every slot is visited.
void ReleaseImageTable() {
  for (int i = 0; i < MAX_IMAGES; i++) {
    delete[] ImageTable.SourceNames[i];
    delete[] ImageTable.ResultNames[i];
  }
  delete[] ImageTable.ReferenceName;
  delete[] ImageTable.CompositeName;
  memset(&ImageTable, 0, sizeof ImageTable);
}
