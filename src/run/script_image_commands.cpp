// The commands that name pictures: the sources, the reference, the composite.
#include <cinttypes>
#include <cstdio>

#include "run/fatal_error.h"
#include "run/script_commands.h"
#include "run/settings.h"

void RunSource(ScriptLine& line) {
  int32_t i = ImageTable.ImageCount + 1;
  if (i > MAX_IMAGE_COUNT) {
    printf("Erreur : trop d'images \x88 traiter\n");
    FatalError();
  }
  // A slot left by an incomplete line is filled again: its names are replaced.
  char* source = NextArgument(line);
  if (source != nullptr) {
    ReplaceText(ImageTable.SourceNames[i], CopyText(source));
    printf("Image source: %s ", source);
  } else {
    printf("Commande source sans nom de fichier source. Ligne %" PRId64 "\n", line.number);
  }
  char* result = NextArgument(line);
  if (result != nullptr) {
    ReplaceText(ImageTable.ResultNames[i], CopyText(result));
    printf("Fichier resultat: %s", result);
  } else {
    printf("Commande source sans nom de fichier resultat. Ligne %" PRId64 "\n", line.number);
  }
  char* x0 = NextArgument(line);
  ImageTable.ImageX0Given[i] = x0 != nullptr;
  if (x0 != nullptr) {
    ImageTable.ImageX0[i] = IntegerValue(x0);
    printf(" Point x0=%i", ImageTable.ImageX0[i]);
  }
  char* y0 = NextArgument(line);
  ImageTable.ImageY0Given[i] = y0 != nullptr;
  if (y0 != nullptr) {
    ImageTable.ImageY0[i] = IntegerValue(y0);
    printf(" y0=%i", ImageTable.ImageY0[i]);
  }
  printf("\n");
  if (source != nullptr && result != nullptr) ImageTable.ImageCount = i;
}

// A line that lacks a stem or a number adds nothing: names are never built
// from a part the line does not give.
void RunSourceSequence(ScriptLine& line) {
  char* sourceStem = NextArgument(line);
  if (sourceStem != nullptr)
    printf("Nom generique de la sequence entree: %s   ", sourceStem);
  else
    printf("Commande source sans nom de fichier source. Ligne %" PRId64 "\n", line.number);
  char* resultStem = NextArgument(line);
  if (resultStem != nullptr)
    printf("sortie: %s   ", resultStem);
  else
    printf("Commande source sans nom de fichier de sortie. Ligne %" PRId64 "\n", line.number);
  char* firstToken = NextArgument(line);
  int32_t first = 0;
  if (firstToken != nullptr) {
    first = IntegerValue(firstToken);
    printf("Debut=%i  ", first);
  } else {
    printf("Pas de numero de debut");
  }
  char* lastToken = NextArgument(line);
  int32_t last = 0;
  if (lastToken != nullptr) {
    last = IntegerValue(lastToken);
    printf("Fin=%i\n", last);
  } else {
    printf("Pas de numero de fin");
  }
  if (sourceStem == nullptr || resultStem == nullptr || firstToken == nullptr || lastToken == nullptr)
    return;
  if ((int64_t)ImageTable.ImageCount + ((int64_t)last - first) + 1 > MAX_IMAGE_COUNT) {
    printf("Trop d'images \x88 traiter\n");
    FatalError();
  }
  // 64-bit counter: last may be 2^31 - 1.
  for (int64_t n = first; n <= last; n++) {
    int32_t i = ImageTable.ImageCount + 1;
    ReplaceText(ImageTable.SourceNames[i], NumberedName(sourceStem, (int32_t)n));
    printf("source: %s -> ", ImageTable.SourceNames[i]);
    ReplaceText(ImageTable.ResultNames[i], NumberedName(resultStem, (int32_t)n));
    printf("resultat: %s", ImageTable.ResultNames[i]);
    ImageTable.ImageX0Given[i] = 0;
    ImageTable.ImageY0Given[i] = 0;
    printf("\n");
    ImageTable.ImageCount = i;
  }
}

void RunReference(ScriptLine& line) {
  if (ImageTable.ReferenceName != nullptr)
    printf("Attention: plusieurs commande reference dans le m\x90me fichier\n");
  char* name = NextArgument(line);
  if (name != nullptr) {
    ReplaceText(ImageTable.ReferenceName, CopyText(name));
    printf("Image de reference: %s", name);
  } else {
    printf("Commande reference sans nom de fichier. Ligne %" PRId64 "\n", line.number);
  }
  char* x0 = NextArgument(line);
  ImageTable.RefX0 = x0 != nullptr ? IntegerValue(x0) : 0;
  ImageTable.RefX0Given = x0 != nullptr;
  if (x0 != nullptr) printf(" Point x0=%i", ImageTable.RefX0);
  char* y0 = NextArgument(line);
  ImageTable.RefY0 = y0 != nullptr ? IntegerValue(y0) : 0;
  ImageTable.RefY0Given = y0 != nullptr;
  if (y0 != nullptr) printf(" y0=%i", ImageTable.RefY0);
  printf("\n");
}

void RunCompositage(ScriptLine& line) {
  char* name = NextArgument(line);
  if (name != nullptr) {
    ReplaceText(ImageTable.CompositeName, CopyText(name));
    printf("Image compositee: %s", name);
  } else {
    printf("Commande compositage sans nom de fichier. Ligne %" PRId64 "\n", line.number);
  }
  printf("\n");
}
