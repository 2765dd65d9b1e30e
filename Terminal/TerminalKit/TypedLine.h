#pragma once

#include <string>
#include <string_view>

/// A line that the user typed, and its kind.
///
/// A line that begins with "/" is a command, without that one slash. One that begins with "@" is a
/// direct message or a mistake, and never goes to the room: a misspelt name must not send the text to
/// everybody. Any other line goes to the room, unchanged; one that holds only blanks is of the kind `nothing`.
struct TypedLine {
    enum class Kind { nothing, command, direct, room };

    [[nodiscard]] static TypedLine parse(std::string_view line);

    /// Whether the line is a command that goes to the server, and so gets an answer: the client handles "name" and
    /// "emoji" itself.
    bool expectsAnswer() const;

    Kind kind = Kind::nothing;
    std::string text;  // without the "/" of a command or the "@" of a direct message

    bool operator==(const TypedLine&) const = default;
};
