// refused: conver(sion|t) .*'const SecretKey'|of type 'ByteView'.* from .*'const SecretKey'
// Whoever wants a secret as text says so, by `view`.
#include "TweetNacl/Nacl.h"

std::string text(const Nacl::KeyPair& pair) {
#ifdef REPAIRED
    return Nacl::hex(pair.publicKey);
#else
    return Nacl::hex(pair.secretKey);
#endif
}
