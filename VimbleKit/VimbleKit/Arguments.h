#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Why the arguments of a program make no sense, in one line, safe to show.
class ArgumentsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Walks over the arguments of a program: options such as "--name", whose value may stand behind them or
/// behind "=", and others.
class Arguments {
public:
    explicit Arguments(const std::vector<std::string_view>& arguments) : arguments(arguments) {}

    /// Goes to the next one. @return false behind the last
    bool next();

    /// All of it.
    std::string_view text() const { return arguments[at]; }
    /// Without "=" and what stands behind it.
    std::string_view name() const { return text().substr(0, text().find('=')); }

    /// What the option is given, which may be empty. Takes the next argument where there is no "=".
    /// @throws ArgumentsError  there is nothing
    std::string givenValue();
    /// The same, and it may not be empty. @throws ArgumentsError
    std::string value();
    /// True, for an option that takes no value. @throws ArgumentsError  it has one
    bool flag() const;

    /// For an option that nobody knows.
    ArgumentsError unknown() const;

private:
    const std::vector<std::string_view>& arguments;
    std::size_t at = static_cast<std::size_t>(-1);
};
