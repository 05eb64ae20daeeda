#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "run/fatal_error.h"
#include "run/script_commands.h"

char* NextToken(char*& cursor, const char* cuts) {
  char* start = cursor + strspn(cursor, cuts);
  if (*start == '\0') {
    cursor = start;
    return nullptr;
  }
  char* end = start + strcspn(start, cuts);
  if (*end != '\0') *end++ = '\0';
  cursor = end;
  return start;
}

char* NextArgument(ScriptLine& line) { return NextToken(line.rest, ", \n"); }

// long has 64 bits here, so strtol alone would let a value such as
// 3000000000 through; the script's integers are 32-bit.
int32_t IntegerValue(const char* token) {
  long value = strtol(token, nullptr, 10);
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return (int32_t)value;
}

float DecimalValue(const char* token) { return (float)strtod(token, nullptr); }

int32_t OppositeBound(int32_t v) { return v == INT32_MIN ? INT32_MAX : -v; }

static char* NewText(size_t length) {
  char* text = new (std::nothrow) char[length + 1];
  if (text == nullptr) {
    OutOfMemory();
  }
  return text;
}

char* CopyText(const char* text) {
  size_t length = strlen(text);
  char* copy = NewText(length);
  memcpy(copy, text, length + 1);
  return copy;
}

void ReplaceText(char*& slot, char* replacement) {
  delete[] slot;
  slot = replacement;
}

char* NumberedName(const char* stem, int32_t number) {
  int length = snprintf(nullptr, 0, "%s%i%s", stem, number, ".bmp");
  char* name = NewText((size_t)length);
  snprintf(name, (size_t)length + 1, "%s%i%s", stem, number, ".bmp");
  return name;
}
