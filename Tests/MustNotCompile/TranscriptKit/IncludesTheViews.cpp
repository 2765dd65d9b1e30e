// unreachable: DesktopViews/ChatterView.h
#ifdef REPAIRED
#include "TranscriptKit/Transcript.h"
#else
#include "DesktopViews/ChatterView.h"
#endif
