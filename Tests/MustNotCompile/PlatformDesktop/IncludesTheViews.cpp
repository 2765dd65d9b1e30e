// unreachable: DesktopViews/Look.h
#ifdef REPAIRED
#include "TranscriptKit/DisplayText.h"
#else
#include "DesktopViews/Look.h"
#endif
