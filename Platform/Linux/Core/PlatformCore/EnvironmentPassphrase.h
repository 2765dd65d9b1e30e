#pragma once

#include "TweetNacl/SealedBox.h"

#include <optional>

/// The passphrase that a user, or a script, has put into the environment.
namespace EnvironmentPassphrase {

/// Takes VIMBLE_SECRET_PASSPHRASE out of the environment, so that no other program inherits it and
/// nobody reads it from the outside for long. While there is one thread only.
/// @return nothing where it is not set, or empty
std::optional<Passphrase> take();

}  // namespace EnvironmentPassphrase
