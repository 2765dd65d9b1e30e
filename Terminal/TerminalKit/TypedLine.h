#pragma once

#include <string>
#include <string_view>

/// What a line that somebody typed is meant to be.
///
/// A line that begins with "/" is a command, without that one slash. One that begins with "@" is a
/// direct message or a mistake, and never goes to the room: whoever misspells a name has not said it
/// to everybody. Any other line goes to the room, as it stands; one that holds only blanks is nothing.
struct TypedLine {
    enum class Kind { nothing, command, direct, room };

    static TypedLine parse(std::string_view line);

    /// Whether it is a command that the server answers: not one of those that the client keeps for itself.
    bool expectsAnswer() const;

    Kind kind = Kind::nothing;
    std::string text;  // direct: everything behind the "@"

    bool operator==(const TypedLine&) const = default;
};
