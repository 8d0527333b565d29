// Single-key input (placeholder).
#include "keyreader.h"

#include <cstdio>

int KeyReader::getch() const { return getc(stdin); }
int KeyReader::readKey() const { return getch(); }
