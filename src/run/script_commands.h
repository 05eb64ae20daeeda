// Pieces shared by the script reader and its commands.
#pragma once

#include <cstdint>

// What is left of one script line once its command word has been cut off.
struct ScriptLine {
  char* rest;      // text not yet consumed
  int64_t number;  // line counter, for messages
};

// Cuts the next token at any of cuts (blanks, colons, commas...), as strtok
// does: leading cut characters are skipped and the one that ends the token is
// overwritten. Null when nothing but cut characters remains.
char* NextToken(char*& cursor, const char* cuts);

// Next argument of a command: cut at commas, blanks and line ends.
char* NextArgument(ScriptLine& line);

// strtol/strtod rules, base 10; a value beyond 32 bits saturates.
int32_t IntegerValue(const char* token);
float DecimalValue(const char* token);

// -v, except that -(-2^31) saturates to 2^31 - 1.
int32_t OppositeBound(int32_t v);

// A new owned copy of text; out of memory is fatal.
char* CopyText(const char* text);

// Releases *slot's text, if any, and stores replacement there.
void ReplaceText(char*& slot, char* replacement);

// stem, number in decimal, ".bmp", in a new owned text.
char* NumberedName(const char* stem, int32_t number);

void SetDefaultSettings();

void RunSource(ScriptLine& line);
void RunSourceSequence(ScriptLine& line);
void RunReference(ScriptLine& line);
void RunCompositage(ScriptLine& line);
void RunDimension(ScriptLine& line);
void RunOptiTranslation(ScriptLine& line);
void RunAngle(ScriptLine& line);
void RunTranslation(ScriptLine& line);
void RunBloc(ScriptLine& line);
void RunRem(ScriptLine& line);
void RunQuitter(ScriptLine& line);
