#pragma once

#include "TweetNacl/SealedBox.h"

#include <optional>
#include <stdexcept>

/// Says why there is no passphrase, in one line for the user.
class PassphrasePromptError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Gets the passphrase of a sealed file from the environment, else from the user at the terminal.
///
/// It is never read from standard input, which may hold the lines to send, and nothing is written to
/// standard output. Main thread only, while no loop runs.
class PassphrasePrompt {
public:
    enum class Purpose { open, choose };

    /// The longest passphrase, in bytes.
    static constexpr std::size_t maximumBytes = 1024;

    /// Takes VIMBLE_SECRET_PASSPHRASE out of the environment, so that no other program inherits it, and others
    /// can't read it in /proc any more.
    PassphrasePrompt();

    /// Returns the passphrase from the environment at the first call; else asks for one on the controlling
    /// terminal, with the echo off. A new passphrase is asked for twice, until both are the same.
    /// @throws PassphrasePromptError  there is no terminal, or nothing was typed, or the passphrase is too long.
    ///         A signal that came meanwhile is raised before this returns or throws
    Passphrase ask(Purpose purpose);

private:
    std::optional<Passphrase> given;
};
