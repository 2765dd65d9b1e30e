#pragma once

#include "Base/Bytes.h"
#include "StateKit/CloseCode.h"

#include <cstdint>
#include <string_view>

struct LinkState;

/// One WebSocket link as the relay's logic sees it; implemented by whoever owns the connection.
///
/// `RelayCore` calls these in the midst of its work: none may call back into it before returning. A
/// connection that fails while sending is reported later, by `RelayCore::linkClosed`.
class RelayLink {
public:
    RelayLink() = default;
    RelayLink(const RelayLink&) = delete;
    RelayLink& operator=(const RelayLink&) = delete;
    virtual ~RelayLink();

    /// Sends one binary message. Everything sent within one turn of the loop is best gathered into one
    /// write. `frame` is borrowed for the call.
    virtual void send(ByteView frame) = 0;

    /// Sends a WebSocket ping with these 8 bytes (most significant first) behind all that was sent so far;
    /// its pong is reported by `RelayCore::pongReceived`.
    virtual void ping(std::uint64_t payload) = 0;

    /// Sends a close frame behind all that was sent so far, and ends the connection. The relay's logic has
    /// forgotten the link when it calls this; what is reported about it afterwards is ignored.
    virtual void close(CloseCode code, std::string_view reason) = 0;

private:
    friend class RelayCore;
    LinkState* state = nullptr;  // owned by `RelayCore`, from `linkOpened` until the link is closed
};
