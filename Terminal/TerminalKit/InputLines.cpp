#include "TerminalKit/InputLines.h"

#include "Text/Text.h"

#include <utility>

void InputLines::feed(std::string_view bytes) {
    while (true) {
        const std::size_t end = bytes.find('\n');
        append(bytes.substr(0, end));
        if (end == std::string_view::npos) return;
        bytes.remove_prefix(end + 1);
        finishLine();
    }
}

void InputLines::end() {
    if (!pending.empty() || isTooLong) finishLine();
}

void InputLines::append(std::string_view part) {
    // Take one byte more than a line may have: it may be the "\r" of the line's end.
    if (isTooLong || pending.size() + part.size() > maximumBytes + 1) {
        isTooLong = true;
        return;
    }
    pending += part;
}

void InputLines::finishLine() {
    std::string line = std::exchange(pending, {});
    const bool wasTooLong = std::exchange(isTooLong, false);
    if (line.ends_with('\r')) line.pop_back();
    if (wasTooLong || line.size() > maximumBytes)
        handlers.refused("a line is longer than 64 KiB");
    else if (!Text::isUtf8(line))
        handlers.refused("a line is not UTF-8");
    else
        handlers.line(std::move(line));
}
