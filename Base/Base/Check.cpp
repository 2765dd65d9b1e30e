#include "Base/Check.h"

#include <cstdio>
#include <cstdlib>

void fatal(std::string_view reason) {
    std::fprintf(stderr, "Fatal: %.*s\n", static_cast<int>(reason.size()), reason.data());
    std::fflush(stderr);
    std::abort();
}
