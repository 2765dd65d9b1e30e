#include "RelayShell/Program.h"

int main(int count, char** words) { return runProgram({words + 1, words + count}); }
