#pragma once

#include "Base/Bytes.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

/// Cuts bytes, as they come from a file, a pipe or a keyboard, into lines of text.
///
/// A line ends in "\n" or "\r\n"; a rest after the last line end is a line too, if it is not empty. A
/// line that is longer than `maximumBytes`, or is not UTF-8, is refused as a whole; it takes no more memory
/// than the limit, however long it is.
class InputLines {
public:
    /// The longest line, in bytes without its end.
    static constexpr std::size_t maximumBytes = 64 * 1024;

    struct Handlers {
        std::function<void(std::string line)> line;
        std::function<void(std::string_view reason)> refused;
    };

    explicit InputLines(Handlers handlers) : handlers(std::move(handlers)) {}

    void feed(std::string_view bytes);
    /// Call this when no more bytes will come.
    void end();

private:
    void append(std::string_view part);
    void finishLine();

    Handlers handlers;
    std::string pending;
    bool isTooLong = false;
};
