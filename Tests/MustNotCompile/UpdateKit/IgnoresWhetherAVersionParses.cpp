// refused: ignoring return value of .*nodiscard
#include "UpdateKit/SemanticVersion.h"

bool isNewer(const SemanticVersion& running, const char* text) {
#ifdef REPAIRED
    return running < SemanticVersion::parse(text);
#else
    SemanticVersion::parse(text);
    return running < running;
#endif
}
