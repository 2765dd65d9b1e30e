#include "TerminalKit/TypedLine.h"

#include "Text/Text.h"

TypedLine TypedLine::parse(std::string_view line) {
    if (Text::trimmed(line).empty()) return {};
    if (line.starts_with('@')) return {Kind::direct, std::string(line.substr(1))};
    if (!line.starts_with('/')) return {Kind::room, std::string(line)};
    line.remove_prefix(1);
    if (Text::trimmed(line).empty()) return {};
    return {Kind::command, std::string(line)};
}

bool TypedLine::expectsAnswer() const {
    if (kind != Kind::command) return false;
    const std::string_view line(text);
    const std::size_t begin = line.find_first_not_of(' ');
    if (begin == std::string_view::npos) return false;
    const std::string_view word = line.substr(begin, line.find(' ', begin) - begin);
    return word != "name" && word != "emoji";
}
