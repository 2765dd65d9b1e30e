// unreachable: VimbleKit/Kit.h
#ifdef REPAIRED
#include "StateKit/Core.h"
#else
#include "VimbleKit/Kit.h"
#endif
