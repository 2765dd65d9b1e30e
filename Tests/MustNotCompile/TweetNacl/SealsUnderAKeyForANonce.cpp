// refused: 'const array<.*32>' to 'const array<.*24>'|'const Nonce&'.* from expression of type 'const PublicKey'
#include "TweetNacl/Nacl.h"

Bytes sealed(ByteView message, const Nonce& nonce, const PublicKey& recipient, const SecretKey& sender) {
#ifdef REPAIRED
    return Nacl::box(message, nonce, recipient, sender);
#else
    return Nacl::box(message, recipient, nonce, sender);
#endif
}
