#pragma once

#include "VimbleKit/Endpoint.h"

#include <stdexcept>
#include <string_view>

/// Says why a text names no server that could be reached, with a hint. It quotes the text unchanged, so the
/// caller must make it safe before showing it.
class [[nodiscard]] ServerTextError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The server that a user means. Refuses more than `Endpoint::parse`, which takes "host:port" for a URL of
/// the scheme "host": the session would try in vain, for ever, to connect to that.
/// @throws ServerTextError
[[nodiscard]] Endpoint serverFrom(std::string_view text);
