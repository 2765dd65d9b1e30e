#include "PlatformCore/EnvironmentPassphrase.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr char variable[] = "VIMBLE_SECRET_PASSPHRASE";

}  // namespace

std::optional<Passphrase> EnvironmentPassphrase::take() {
    char* value = std::getenv(variable);
    if (value == nullptr) return std::nullopt;
    std::optional<Passphrase> given;
    if (*value != '\0') given.emplace(std::string(value));
    // Overwrite the text itself: the kernel shows a process's first environment, which unsetenv does not change.
    explicit_bzero(value, std::strlen(value));
    unsetenv(variable);
    return given;
}
