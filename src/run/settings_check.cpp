#include <cmath>
#include <cstdio>

#include "run/fatal_error.h"
#include "run/run_driver.h"
#include "run/settings.h"

// The script reader stores these values as given; the search loops advance by
// them and would never end, or would size a patch negatively.
void CheckSettings() {
  if (Settings.ShiftStep < 0) {
    printf("Erreur : pas de translation negatif (%i)\n", Settings.ShiftStep);
    FatalError();
  }
  if (!std::isfinite(Settings.AngleMin)) {
    printf("Erreur : angle minimum invalide (%f)\n", (double)Settings.AngleMin);
    FatalError();
  }
  if (!std::isfinite(Settings.AngleMax)) {
    printf("Erreur : angle maximum invalide (%f)\n", (double)Settings.AngleMax);
    FatalError();
  }
  if (!std::isfinite(Settings.AngleResolution)) {
    printf("Erreur : resolution angulaire invalide (%f)\n", (double)Settings.AngleResolution);
    FatalError();
  }
  if (Settings.AngleMin != Settings.AngleMax && Settings.AngleResolution < 0.0f) {
    printf("Erreur : resolution angulaire negative (%f radian)\n", (double)Settings.AngleResolution);
    FatalError();
  }
  if (Settings.GridWidth <= 0) return;
  if (!std::isfinite(Settings.BlockShiftStep) || Settings.BlockShiftStep <= 0.0f) {
    printf("Erreur : pas de decalage de bloc invalide (%f)\n", (double)Settings.BlockShiftStep);
    FatalError();
  }
  if (Settings.SearchWidth < 0) {
    printf("Erreur : largeur de recherche negative (%i)\n", Settings.SearchWidth);
    FatalError();
  }
}
