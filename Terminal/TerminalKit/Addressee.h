#pragma once

#include "VimbleKit/State.h"

#include <stdexcept>
#include <string>
#include <string_view>

/// Why a direct message has nobody to go to, in one line for the user; names in it are escaped.
class AddresseeError : public std::runtime_error {
public:
    enum class Code { noWho, noText, unknown, ambiguous };
    AddresseeError(Code code, const std::string& text) : std::runtime_error(text), code(code) {}

    Code code;
};

/// Whom a direct message is for, and what it says: the outcome of "@WHO text".
///
/// WHO is one of
/// - a key, of 64 hexadecimal characters; the person need not be listed;
/// - the first six or more characters of one listed key;
/// - a name (`displayName`) as it stands, blanks and all, with a blank behind it;
/// - a name in double quotes, which is taken exactly as long as the quotes say.
///
/// A key beats a name. Names are chosen by those who bear them, so a message never goes to one of
/// several whom WHO fits: neither to one of two with the same name, nor, with "Ann" and "Ann Lee"
/// there, to either of them for "@Ann Lee is here". Quotes or a key say who is meant.
struct Addressee {
    /// @param line  what stands behind the "@"
    /// @throws AddresseeError
    static Addressee parse(std::string_view line, const State& state);

    std::string key;
    std::string text;  // without the blanks in front of it

    bool operator==(const Addressee&) const = default;
};
