#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "run/fatal_error.h"
#include "run/script_commands.h"
#include "run/settings.h"

struct CommandForm {
  const char* word;
  void (*run)(ScriptLine& line);
};

static const CommandForm COMMAND_FORMS[] = {
    {"Source", RunSource},
    {"source", RunSource},
    {"Sourcesbmp", RunSourceSequence},
    {"sourcesbmp", RunSourceSequence},
    {"Reference", RunReference},
    {"reference", RunReference},
    {"Compositage", RunCompositage},
    {"compositage", RunCompositage},
    {"Dimension", RunDimension},
    {"dimension", RunDimension},
    {"OptiTranslation", RunOptiTranslation},
    {"Optitranslation", RunOptiTranslation},
    {"optiTranslation", RunOptiTranslation},
    {"optitranslation", RunOptiTranslation},
    {"Angle", RunAngle},
    {"angle", RunAngle},
    {"Translation", RunTranslation},
    {"translation", RunTranslation},
    {"Bloc", RunBloc},
    {"bloc", RunBloc},
    {"Rem", RunRem},
    {"rem", RunRem},
    {"Quitter", RunQuitter},
    {"quitter", RunQuitter},
};

// fopen happily opens a directory on Linux and the first read then fails,
// which would pass for an empty script: only a regular file is a script.
static FILE* OpenScript(const char* path) {
  FILE* script = fopen(path, "r");
  if (script == nullptr) return nullptr;
  struct stat status;
  if (fstat(fileno(script), &status) != 0 || !S_ISREG(status.st_mode)) {
    fclose(script);
    return nullptr;
  }
  return script;
}

// The line end is not a cut character for the command word, so a word that
// ends its line keeps the line end and matches no keyword; a word of just the
// line end is a blank line.
static void RunLine(char* text, int64_t number) {
  ScriptLine line = {text, number};
  char* word = NextToken(line.rest, ": ");
  if (word == nullptr || strcmp(word, "\n") == 0) return;
  for (const CommandForm& form : COMMAND_FORMS) {
    if (strcmp(word, form.word) != 0) continue;
    form.run(line);
    return;
  }
  printf("*********** Commande inconnue ligne %" PRId64 "\n", number);
}

void ParseScript() {
  printf("Lecture des parametres\n");
  SetDefaultSettings();
  ReleaseImageTable();
  FILE* script = OpenScript(Settings.ScriptPath);
  if (script == nullptr) {
    printf("Impossible d'ouvrir le fichier %s\n", Settings.ScriptPath);
    FatalError();
  }
  printf("\nFichier de script : %s\n\n\n", Settings.ScriptPath);
  // 999 characters at most per read: a longer line comes in pieces, each
  // handled and numbered as a line of its own.
  char text[1000];
  int64_t number = 0;
  for (;;) {
    number++;
    if (fgets(text, sizeof text, script) == nullptr) break;
    RunLine(text, number);
  }
  fclose(script);
}
