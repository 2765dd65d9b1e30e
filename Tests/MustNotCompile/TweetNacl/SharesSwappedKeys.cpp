// refused: no matching (constructor for initialization of|function for call to) '.*SharedKey
#include "TweetNacl/Nacl.h"

Bytes opened(ByteView sealed, const Nonce& nonce, const PublicKey& theirs, const SecretKey& ours) {
#ifdef REPAIRED
    const Nacl::SharedKey shared(theirs, ours);
#else
    const Nacl::SharedKey shared(ours, theirs);
#endif
    return shared.open(sealed, nonce);
}
