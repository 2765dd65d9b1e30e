// refused: ignoring return value of .*nodiscard
#include "TweetNacl/Nacl.h"

void open(ByteView sealed, const Nonce& nonce, const PublicKey& sender, const SecretKey& recipient) {
#ifdef REPAIRED
    static_cast<void>(Nacl::open(sealed, nonce, sender, recipient));
#else
    Nacl::open(sealed, nonce, sender, recipient);
#endif
}
