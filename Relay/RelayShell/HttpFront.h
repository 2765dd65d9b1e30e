#pragma once

#include "Base/Bytes.h"

#include <cstddef>
#include <optional>
#include <string>

/// What a request asks for, read and judged; or what to answer to a bad one.
struct HttpVerdict {
    enum class Kind { upgrade, healthz, metrics, answer };

    Kind kind = Kind::answer;
    std::string response;      // for `upgrade` and `answer`: the whole of it
    std::string forwardedFor;  // the last address in X-Forwarded-For; empty without one
    std::size_t used = 0;      // bytes of the request; for `upgrade`, frames begin behind them
};

/// The relay's HTTP side: one request a connection, of a limited size, without a body.
///
/// No input or output. A path that ends in "/relay" is the WebSocket (RFC 6455, section 4.2); a proxy in
/// front may have put anything before it.
namespace HttpFront {

/// Looks at all that a connection has sent so far.
/// @param maxHeader  a longer request is answered with 431
/// @return nothing while the request is not complete
[[nodiscard]] std::optional<HttpVerdict> judge(ByteView received, std::size_t maxHeader);

/// A whole response, after which the connection is closed.
std::string response(int status, const std::string& contentType, const std::string& body,
                     const std::string& extraHeader = {});

}  // namespace HttpFront
