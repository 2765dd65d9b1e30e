#pragma once

#include "VimbleKit/State.h"

#include <stdexcept>
#include <string>
#include <string_view>

/// Says why a direct message can't be sent to anybody, in one line for the user; names in it are escaped.
class AddresseeError : public std::runtime_error {
public:
    enum class Code { noWho, noText, unknown, ambiguous };
    AddresseeError(Code code, const std::string& text) : std::runtime_error(text), code(code) {}

    Code code;
};

/// The person to whom a direct message goes, and its text: "@WHO text", parsed.
///
/// WHO is one of
/// - a key, of 64 hexadecimal characters; the person need not be listed;
/// - the first six or more characters of one listed key;
/// - a name (`displayName`), exactly as it is, blanks included, followed by a blank;
/// - a name in double quotes, which ends where the quotes end.
///
/// A key beats a name. Since anybody can choose any name, a message to a WHO that fits several people is
/// refused: if two have the same name, and also "@Ann Lee is here" if there are both "Ann" and "Ann Lee".
/// Quotes or a key make it clear who is meant.
struct Addressee {
    /// @param line  the text after the "@"
    /// @throws AddresseeError
    [[nodiscard]] static Addressee parse(std::string_view line, const State& state);

    std::string key;
    std::string text;  // without leading blanks

    bool operator==(const Addressee&) const = default;
};
