// unreachable: DesktopKit/App.h
#ifdef REPAIRED
#include "VimbleKit/Keys.h"
#else
#include "DesktopKit/App.h"
#endif
