// refused: no matching function for call to 'open
// Also where the boxes of plain bytes are at hand.
#include "TweetNacl/BoxesOfBytes.h"

Bytes opened(ByteView sealed, const Nonce& nonce, const PublicKey& sender, const SecretKey& recipient) {
#ifdef REPAIRED
    return Nacl::open(sealed, nonce, sender, recipient);
#else
    return Nacl::open(sealed, nonce, recipient, sender);
#endif
}
