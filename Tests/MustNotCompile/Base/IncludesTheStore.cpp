// unreachable: StateKit/Core.h
#ifdef REPAIRED
#include "Base/Check.h"
#else
#include "StateKit/Core.h"
#endif
