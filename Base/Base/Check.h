#pragma once

#include <string_view>

/// Ends the process with one line on standard error.
///
/// For our own bugs, and for what can't be survived; never for input. Stays on in release builds.
[[noreturn]] void fatal(std::string_view reason);

/// Ends the process when a thing that must hold by construction does not.
inline void check(bool holds, std::string_view reason) {
    if (!holds) [[unlikely]]
        fatal(reason);
}
