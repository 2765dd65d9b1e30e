// refused: ignoring return value of .*nodiscard
#include "VimbleWire/Pack.h"

bool isPack(ByteView frame) {
#ifdef REPAIRED
    return EncryptedPack::parse(frame).has_value();
#else
    EncryptedPack::parse(frame);
    return true;
#endif
}
