// refused: from 'ByteView'.* to 'const Nonce'|'const Nonce&'.* from expression of type 'ByteView'
#include "TweetNacl/Nacl.h"

Bytes sealed(ByteView message, ByteView nonce, const PublicKey& recipient, const SecretKey& sender) {
#ifdef REPAIRED
    return Nacl::box(message, Nacl::nonceFromBytes(nonce), recipient, sender);
#else
    return Nacl::box(message, nonce, recipient, sender);
#endif
}
