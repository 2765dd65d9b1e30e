#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>

/// The engine's own error value.
///
/// JSON: {"code": the case's name, "explanation": optional text}.
class [[nodiscard]] KitError : public std::exception {
public:
    /// The first six take no explanation. JSON: the case's name.
    enum class Code {
        notLoggedIn,
        alreadyConnecting,
        alreadyRegistering,
        alreadyConnected,
        notConnected,
        clientDeprecated,
        badRequest,
        badParameter,
        badBase,
        notFound,
        network,
        service,
        unknown
    };

    explicit KitError(Code code = Code::unknown, std::optional<std::string> explanation = {});

    Code code() const { return _code; }
    const std::optional<std::string>& explanation() const { return _explanation; }

    /// The error's text, the same as that of `what()`.
    const std::string& localizedDescription() const { return text; }
    const char* what() const noexcept override { return text.c_str(); }

    static const char* name(Code code);
    /// Nothing for a text that is no case's name.
    [[nodiscard]] static std::optional<Code> code(std::string_view name);

    bool operator==(const KitError& other) const { return _code == other._code && _explanation == other._explanation; }

private:
    Code _code;
    std::optional<std::string> _explanation;
    std::string text;
};
