#pragma once

#include "VimbleKit/Endpoint.h"

#include <stdexcept>
#include <string_view>

/// Why a text names no server that could be reached, with a hint. The text stands in it as it came;
/// whoever shows it makes it safe.
class ServerTextError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The server that a user means: `Endpoint::parse`, without what it takes and nobody can mean. A host and
/// a port alone read as a URL's scheme and what follows it, which would be tried for ever.
/// @throws ServerTextError
Endpoint serverFrom(std::string_view text);
