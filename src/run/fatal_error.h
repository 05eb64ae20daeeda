#pragma once

// Prints the two fatal lines, waits for one character on standard input (end
// of input ends the wait too) and aborts. Standard output is flushed first so
// nothing is lost when it is a pipe or a file.
[[noreturn]] void FatalError();

// Prints "Erreur : pas assez de memoire " as a line, then FatalError. Called
// from the main thread only.
[[noreturn]] void OutOfMemory();
