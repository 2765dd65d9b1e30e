// refused: ignoring return(ed)? value of .*(nodiscard|KeysError)
#include "VimbleKit/Keys.h"

void insist(const std::optional<Keys>& keys) {
#ifdef REPAIRED
    if (!keys) throw KeysError::notFound();
#else
    if (!keys) KeysError::notFound();
#endif
}
