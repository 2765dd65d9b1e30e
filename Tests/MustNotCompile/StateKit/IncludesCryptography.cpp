// unreachable: TweetNacl/Nacl.h
#ifdef REPAIRED
#include "Base/Bytes.h"
#else
#include "TweetNacl/Nacl.h"
#endif
