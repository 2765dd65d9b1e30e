// refused: deleted (copy constructor of|function) '.*SharedKey
#include "TweetNacl/Nacl.h"

#ifdef REPAIRED
Nacl::SharedKey moved(Nacl::SharedKey key) { return key; }
#else
Nacl::SharedKey copied(const Nacl::SharedKey& key) { return key; }
#endif
