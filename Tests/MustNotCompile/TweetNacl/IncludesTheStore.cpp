// unreachable: StateKit/Core.h
#ifdef REPAIRED
#include "TweetNacl/SealedBox.h"
#else
#include "StateKit/Core.h"
#endif
