// The commands that set search parameters and run flags.
#include <cstdio>
#include <cstring>

#include "run/script_commands.h"
#include "run/settings.h"

void RunDimension(ScriptLine& line) {
  char* choice = NextArgument(line);
  if (choice != nullptr) {
    if (strcmp(choice, "Libre") == 0 || strcmp(choice, "libre") == 0)
      printf("La taille de sortie des images peut \x90tre differente de la taille d'origine");
    else
      printf("La taille de sortie des images sera la meme que la taille d'origine"
             "\n ***** Pas encore implemente...");
  }
  printf("\n");
}

void RunOptiTranslation(ScriptLine& line) {
  char* fraction = NextArgument(line);
  if (fraction != nullptr) {
    int32_t value = IntegerValue(fraction);
    Settings.TranslationFraction = value < 1 ? 1 : value;
    printf("Fraction de l'image prise en compte pour la recherche de translation=1/%i  ",
           Settings.TranslationFraction);
  }
  printf("\n");
}

// The script gives degrees; the float degree value is echoed and converted.
static void ReadAngle(ScriptLine& line, const char* label, float& radians) {
  char* token = NextArgument(line);
  if (token == nullptr) return;
  float degrees = DecimalValue(token);
  printf("%s=%f  ", label, (double)degrees);
  radians = (float)((double)degrees * 0.017453292522222223);
}

void RunAngle(ScriptLine& line) {
  ReadAngle(line, "Angle min", Settings.AngleMin);
  ReadAngle(line, "Angle max", Settings.AngleMax);
  ReadAngle(line, "Resolution", Settings.AngleResolution);
  printf("\n");
}

// One value v sets a square range: -v to v on both axes.
static void SetSquareRange(int32_t v, int32_t& minX, int32_t& maxX, int32_t& minY, int32_t& maxY) {
  maxX = v;
  maxY = v;
  minX = OppositeBound(v);
  minY = OppositeBound(v);
}

void RunTranslation(ScriptLine& line) {
  char* maximum = NextArgument(line);
  if (maximum != nullptr) {
    int32_t v = IntegerValue(maximum);
    SetSquareRange(v, Settings.ShiftMinX, Settings.ShiftMaxX, Settings.ShiftMinY, Settings.ShiftMaxY);
    printf("Decalage global maximum=%i  ", v);
  }
  char* step = NextArgument(line);
  if (step != nullptr) {
    int32_t value = IntegerValue(step);
    Settings.ShiftStep = value == 0 ? 1 : value;
    printf(" pas=%i  ", Settings.ShiftStep);
  }
  printf("\n");
}

void RunBloc(ScriptLine& line) {
  char* grid = NextArgument(line);
  if (grid != nullptr) {
    Settings.GridWidth = IntegerValue(grid);
    printf("Largeur de grille=%i  ", Settings.GridWidth);
  }
  char* search = NextArgument(line);
  if (search != nullptr) {
    Settings.SearchWidth = IntegerValue(search);
    printf("Largeur de recherche=%i  ", Settings.SearchWidth);
  }
  char* maximum = NextArgument(line);
  if (maximum != nullptr) {
    int32_t v = IntegerValue(maximum);
    SetSquareRange(v, Settings.BlockShiftMinX, Settings.BlockShiftMaxX, Settings.BlockShiftMinY,
                   Settings.BlockShiftMaxY);
    printf("Decalage maxi de bloc=%i  ", v);
  }
  char* step = NextArgument(line);
  if (step != nullptr) {
    Settings.BlockShiftStep = DecimalValue(step);
    printf("Pas de decalage de bloc=%f  ", (double)Settings.BlockShiftStep);
  }
  printf("\n");
}

void RunRem(ScriptLine&) {}

void RunQuitter(ScriptLine&) { Settings.NoFinalPause = 1; }
