#pragma once

#include "TweetNacl/Nacl.h"

#include <optional>
#include <string_view>

enum class CommandKind { list, help, who, add, remove, admin, unadmin, missingKey, badKey, unknown };

/// What somebody asked of the relay over the chat.
struct Command {
    CommandKind kind = CommandKind::unknown;
    PublicKey key{};  // for those that name one

    /// Reads a command: words between spaces, the first of which decides. Never fails: what can't be
    /// read has a kind of its own.
    [[nodiscard]] static Command parsed(std::string_view text);
};

/// A member's key from 64 hexadecimal characters; nothing for any other text, and for keys with which
/// nothing can be sealed.
[[nodiscard]] std::optional<PublicKey> memberKey(std::string_view text);

/// What "help" answers.
extern const std::string_view commandHelp;
