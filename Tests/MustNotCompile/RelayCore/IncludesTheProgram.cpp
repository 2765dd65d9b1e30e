// unreachable: RelayShell/SqliteStore.h
#ifdef REPAIRED
#include "RelayCore/RelayStore.h"
#else
#include "RelayShell/SqliteStore.h"
#endif
