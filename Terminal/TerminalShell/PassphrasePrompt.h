#pragma once

#include "TweetNacl/SealedBox.h"

#include <optional>
#include <stdexcept>

/// Why no passphrase could be had, in one line for the user.
class PassphrasePromptError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Where the passphrase of a sealed file comes from: the environment, else the user at the terminal.
///
/// Standard input is never asked, since it may be what is to be said, and nothing is written to
/// standard output. Main thread only, while no loop runs.
class PassphrasePrompt {
public:
    enum class Purpose { open, choose };

    /// The longest passphrase, in bytes.
    static constexpr std::size_t maximumBytes = 1024;

    /// Takes VIMBLE_SECRET_PASSPHRASE out of the environment, so that no other program inherits it and
    /// nobody reads it from the outside for long.
    PassphrasePrompt();

    /// What the environment had, the first time; else what is typed on the controlling terminal, which
    /// does not show it. One to be chosen is asked for twice, until the two agree.
    /// @throws PassphrasePromptError  there is no terminal, or nothing was typed; a signal that came
    ///         meanwhile does its work first
    Passphrase ask(Purpose purpose);

private:
    std::optional<Passphrase> given;
};
