// unreachable: VimbleKit/Kit.h
#ifdef REPAIRED
#include "UpdateKit/SemanticVersion.h"
#else
#include "VimbleKit/Kit.h"
#endif
