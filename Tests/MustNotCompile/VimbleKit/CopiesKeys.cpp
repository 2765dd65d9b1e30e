// refused: deleted (copy constructor of|function) '.*Keys
#include "VimbleKit/Keys.h"

#ifdef REPAIRED
Keys moved(Keys keys) { return keys; }
#else
Keys copied(const Keys& keys) { return keys; }
#endif
