#pragma once

#include "TweetNacl/SealedBox.h"

#include <optional>

/// The passphrase that a user, or a script, has put into the environment.
namespace EnvironmentPassphrase {

/// Takes VIMBLE_SECRET_PASSPHRASE out of the environment, so that no other program inherits it and
/// nobody can read it from outside for long. Call it while the process has only one thread.
/// @return nothing if it is not set or is empty
std::optional<Passphrase> take();

}  // namespace EnvironmentPassphrase
