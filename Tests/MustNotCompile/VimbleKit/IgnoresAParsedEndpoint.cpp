// refused: ignoring return value of .*nodiscard
#include "VimbleKit/Endpoint.h"

bool isServer(std::string_view text) {
#ifdef REPAIRED
    return Endpoint::parse(text).has_value();
#else
    Endpoint::parse(text);
    return true;
#endif
}
