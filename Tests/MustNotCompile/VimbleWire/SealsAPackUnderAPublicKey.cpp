// refused: to 'const SecretKey
#include "VimbleWire/Pack.h"

EncryptedPack sealed(const Pack& pack, const Nacl::KeyPair& author) {
#ifdef REPAIRED
    return pack.encrypted(author.secretKey);
#else
    return pack.encrypted(author.publicKey);
#endif
}
