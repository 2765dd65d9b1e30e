// unreachable: VimbleKit/Kit.h
#ifdef REPAIRED
#include "TweetNacl/Nacl.h"
#else
#include "VimbleKit/Kit.h"
#endif
