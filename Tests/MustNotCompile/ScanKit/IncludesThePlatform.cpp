// unreachable: PlatformDesktop/CameraProcess.h
#ifdef REPAIRED
#include "ScanKit/FrameSource.h"
#else
#include "PlatformDesktop/CameraProcess.h"
#endif
