#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Says what is wrong with the arguments of a program, in one line that is safe to show.
class [[nodiscard]] ArgumentsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Walks over the arguments of a program: options such as "--name", whose value is the next argument or
/// follows a "=", and arguments that are no options. The list must outlive this object.
class Arguments {
public:
    explicit Arguments(const std::vector<std::string_view>& arguments) : arguments(arguments) {}

    /// Goes to the next argument. @return false if there is none
    [[nodiscard]] bool next();

    /// The whole argument.
    std::string_view text() const { return arguments[at]; }
    /// The argument up to its "=", if it has one.
    std::string_view name() const { return text().substr(0, text().find('=')); }

    /// The option's value, which may be empty: the text behind "=", or else the next argument, which is taken.
    /// @throws ArgumentsError  there is none
    std::string givenValue();
    /// The option's value, which must not be empty. @throws ArgumentsError  there is none, or it is empty
    std::string value();
    /// Always true, for an option that takes no value. @throws ArgumentsError  it was given one with "="
    bool flag() const;

    /// The error for an option that the program does not know.
    ArgumentsError unknown() const;

private:
    const std::vector<std::string_view>& arguments;
    std::size_t at = static_cast<std::size_t>(-1);
};
