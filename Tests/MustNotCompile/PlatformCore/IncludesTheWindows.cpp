// unreachable: DesktopKit/App.h
#ifdef REPAIRED
#include "QtText/QtText.h"
#else
#include "DesktopKit/App.h"
#endif
