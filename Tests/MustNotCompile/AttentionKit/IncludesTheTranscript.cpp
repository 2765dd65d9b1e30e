// unreachable: TranscriptKit/Transcript.h
#ifdef REPAIRED
#include "AttentionKit/Notifier.h"
#else
#include "TranscriptKit/Transcript.h"
#endif
