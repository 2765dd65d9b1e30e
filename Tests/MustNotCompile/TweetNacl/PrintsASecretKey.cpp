// refused: (invalid operands|no match for 'operator<<') .*'const SecretKey'
#include "TweetNacl/Nacl.h"

#include <ostream>

void print(std::ostream& out, const Nacl::KeyPair& pair) {
#ifdef REPAIRED
    out << Nacl::hex(pair.publicKey);
#else
    out << pair.secretKey;
#endif
}
