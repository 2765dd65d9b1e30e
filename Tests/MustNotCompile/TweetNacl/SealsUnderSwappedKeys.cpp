// refused: 'const SecretKey' to 'const PublicKey'|'const PublicKey&'.* from expression of type 'const SecretKey'
#include "TweetNacl/Nacl.h"

Bytes sealed(ByteView message, const Nonce& nonce, const PublicKey& recipient, const SecretKey& sender) {
#ifdef REPAIRED
    return Nacl::box(message, nonce, recipient, sender);
#else
    return Nacl::box(message, nonce, sender, recipient);
#endif
}
