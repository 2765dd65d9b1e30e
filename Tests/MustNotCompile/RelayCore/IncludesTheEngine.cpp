// unreachable: VimbleKit/Kit.h
#ifdef REPAIRED
#include "VimbleWire/Pack.h"
#else
#include "VimbleKit/Kit.h"
#endif
