#include "VimbleKit/Arguments.h"

#include "Text/Text.h"

bool Arguments::next() { return ++at < arguments.size(); }

std::string Arguments::givenValue() {
    const std::string option(name());
    if (const std::size_t equals = text().find('='); equals != std::string_view::npos)
        return std::string(text().substr(equals + 1));
    if (at + 1 < arguments.size()) return std::string(arguments[++at]);
    throw ArgumentsError(option + " needs a value");
}

std::string Arguments::value() {
    const std::string option(name());
    std::string given = givenValue();
    if (given.empty()) throw ArgumentsError(option + " needs a value");
    return given;
}

bool Arguments::flag() const {
    if (name().size() < text().size()) throw ArgumentsError(std::string(name()) + " takes no value");
    return true;
}

ArgumentsError Arguments::unknown() const {
    return ArgumentsError("there is no option " + Text::escaped(text()) + "; --help tells which there are");
}
