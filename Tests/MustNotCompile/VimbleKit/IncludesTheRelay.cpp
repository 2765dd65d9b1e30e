// unreachable: RelayCore/RelayCore.h
#ifdef REPAIRED
#include "VimbleWire/Pack.h"
#else
#include "RelayCore/RelayCore.h"
#endif
