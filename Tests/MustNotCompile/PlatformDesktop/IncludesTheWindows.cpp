// unreachable: DesktopKit/App.h
#ifdef REPAIRED
#include "AttentionKit/NotificationCenter.h"
#else
#include "DesktopKit/App.h"
#endif
