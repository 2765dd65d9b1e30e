#pragma once

#include "StateKit/Transport.h"

#include <exception>
#include <optional>
#include <string>

/// What went wrong between the user and the server.
class [[nodiscard]] SocketError : public std::exception {
public:
    enum class Code { networkFailure, authorizationFailure, notConnected, badArgument };

    static SocketError networkFailure(std::optional<TransportError> underlying);
    static SocketError authorizationFailure(std::string explanation);
    static SocketError notConnected() { return SocketError(Code::notConnected); }
    static SocketError badArgument() { return SocketError(Code::badArgument); }

    const std::string& localizedDescription() const { return text; }
    const char* what() const noexcept override { return text.c_str(); }

    Code code;
    std::optional<TransportError> underlying;  // networkFailure
    std::string explanation;                   // authorizationFailure

private:
    explicit SocketError(Code code);

    std::string text;
};
