// unreachable: PlatformCore/SealedFileStore.h
#ifdef REPAIRED
#include "VimbleKit/SecretStore.h"
#else
#include "PlatformCore/SealedFileStore.h"
#endif
