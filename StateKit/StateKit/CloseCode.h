#pragma once

#include <cstdint>

/// Why a WebSocket was closed, by the numbers of RFC 6455, section 7.4.1, and its registry. Any other
/// number may come from a peer.
enum class CloseCode : std::uint16_t {
    normalClosure = 1000,
    goingAway = 1001,        // also: the link was silent for too long
    policyViolation = 1008,  // refused, or removed: a client takes it as "thrown out" and does not come back
    internalError = 1011,
    tryAgainLater = 1013  // a limit was reached
};
