#include "run/run_driver.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "blocks/blocks.h"
#include "composite/composite.h"
#include "image/image.h"
#include "image/output_file.h"
#include "register/register.h"
#include "run/fatal_error.h"
#include "run/run_state.h"
#include "run/settings.h"

static const char* const STAR_LINE = "**************************************";

static void ReadCommandLine(int argc, char** argv) {
  if (argc < 2) {
    Settings.ScriptPath = "ScriptKelvarion2.txt";
    Settings.NoFinalPause = 0;
    return;
  }
  Settings.ScriptPath = argv[1];
  Settings.NoFinalPause = 1;
  if (argc > 2) {
    printf("Trop de fichiers : seul le premier fichier pourra \x90tre traite\n");
    printf("Veuillez faire un script pour lancer plusieurs fois Kelvarion\n");
  }
}

static void PrintBanner() {
  printf("%s\n", STAR_LINE);
  printf("****        Kelvarion v2.1        ****\n");
  printf("****   Recalage et compositage    ****\n");
  printf("****        24 Avril 2002         ****\n");
  printf("%s\n", STAR_LINE);
  printf("****        Portage Linux         ****\n");
  printf("****    d'images astronomiques    ****\n");
  printf("%s\n", STAR_LINE);
  printf("\n");
}

static void LoadReference() {
  if (LoadImage(Reference, ImageTable.ReferenceName) != 0) FatalError();
  Reference.x0 = ImageTable.RefX0Given ? ImageTable.RefX0 : Reference.width / 2;
  Reference.y0 = ImageTable.RefY0Given ? ImageTable.RefY0 : Reference.height / 2;
}

static void OpenShiftLog() {
  ShiftLog = fopen("shift.lst", "w");
  if (ShiftLog != nullptr) return;
  printf("Erreur : impossible de creer le fichier shift.lst (%s)\n", strerror(errno));
  FatalError();
}

static void CloseShiftLog() {
  bool failed = ferror(ShiftLog) != 0;
  if (fclose(ShiftLog) != 0) failed = true;
  ShiftLog = nullptr;
  if (failed) ReportOutputFailure("shift.lst", errno != 0 ? errno : EIO);
}

static void ProcessImage(int i) {
  printf("\n**************************************************\n");
  printf("Traitement de l'image %i (%s)\n", i, ImageTable.SourceNames[i]);
  if (LoadImage(Current, ImageTable.SourceNames[i]) != 0) return;
  unsigned int start = ProcessorSeconds();
  Current.x0 = ImageTable.ImageX0Given[i] ? ImageTable.ImageX0[i] : Reference.x0;
  Current.y0 = ImageTable.ImageY0Given[i] ? ImageTable.ImageY0[i] : Reference.y0;
  if (Settings.AngleMin == Settings.AngleMax)
    SearchTranslation();
  else
    SearchRotation();
  if (Settings.GridWidth > 0) AdjustBlocks();
  unsigned int end = ProcessorSeconds();
  printf("Temps total de calcul pour l'image: %u secondes\n", end - start);
  SaveBmp(Current, ImageTable.ResultNames[i]);
  if (ImageTable.CompositeName != nullptr) AccumulateComposite(Current);
  ReleasePixels(Current);
}

static void WaitForEnter() {
  printf("Appuyez sur entree pour quitter\n");
  fflush(stdout);
  getchar();  // end of input ends the wait as well
}

int RunKelvarion(int argc, char** argv) {
  ReadCommandLine(argc, argv);
  PrintBanner();
  unsigned int runStart = ProcessorSeconds();
  ParseScript();
  if (ImageTable.ReferenceName == nullptr) {
    printf("Erreur : pas d'image de reference\n");
    FatalError();
  }
  CheckSettings();
  LoadReference();
  if (ImageTable.CompositeName != nullptr) CreateAccumulator();
  if (Settings.AngleMin == Settings.AngleMax) PrepareTranslationSearch();
  if (Settings.GridWidth > 0) PrepareBlockStage();
  OpenShiftLog();

  for (int i = 1; i <= ImageTable.ImageCount; i++) ProcessImage(i);

  CloseShiftLog();
  if (ImageTable.CompositeName != nullptr) SaveComposite();
  EndTranslationSearch();
  EndBlockStage();
  ReleasePixels(Reference);
  ReleaseImageTable();
  printf("\n");
  printf("Temps pour l'ensemble du calcul: %u secondes\n", ProcessorSeconds() - runStart);
  printf("Fin de l'execution de Kelvarion\n");
  if (Settings.NoFinalPause == 0) WaitForEnter();
  fflush(stdout);
  return WriteFailureCount > 0 ? 1 : 0;
}
