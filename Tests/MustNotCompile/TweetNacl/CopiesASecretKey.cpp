// refused: deleted (constructor of 'SecretKey'|function 'SecretKey::SecretKey)
#include "TweetNacl/Nacl.h"

SecretKey second(const SecretKey& key) {
#ifdef REPAIRED
    return key.duplicate();
#else
    return key;
#endif
}
