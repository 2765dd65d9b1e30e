#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/Transport.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QtLink;

/// Makes WebSocket connections with Qt's `QWebSocket`.
///
/// A connection uses `wss` if `usesTls` is set and else `ws`, whatever the scheme of its URL. A certificate
/// that can't be verified is never accepted.
///
/// **Waiting.** Until a connection has been ready once, every failure that may pass (refused, unreachable,
/// no such name, TLS or upgrade refused, an attempt that takes over 15 seconds) leads to the state
/// `waiting`, and the connection tries again by itself after 1, 2, 4, 8, 16 and then every 30 seconds. A
/// failure that can't pass (a URL without a host, a header with a line break in it) leads to `failed`.
///
/// **Liveness.** A ready link from which nothing was heard for 25 seconds is pinged; when nothing comes
/// for 20 seconds more, it is `failed`.
///
/// **Closing.** A close frame of the peer arrives as a close message and then as `receiveFailed`. A frame
/// without a code counts as one with 1000. If this side ends the link because the peer broke the protocol
/// or a limit, that arrives as a close frame with 1002, 1007 or 1009. After `receiveFailed` the state is
/// `failed`, which is not reported again. The completion of a close message is called when it has left.
///
/// **Limits.** An incoming message is at most 64 MiB, or the link ends. Messages of the kinds text,
/// binary, ping and close can be sent; a ping holds 125 bytes at most.
///
/// Main thread only. Connections may outlive the transport.
class QtTransport : public Transport {
public:
    static constexpr std::uint64_t maximumMessageBytes = 64 << 20;
    static constexpr Seconds attemptTimeout = 15;
    static constexpr Seconds longestBackOff = 30;
    static constexpr Seconds silenceBeforePing = 25;
    static constexpr Seconds patienceAfterPing = 20;

    /// @param loop  keeps all timers; must outlive this object and its connections
    explicit QtTransport(MainLoop& loop);
    ~QtTransport() override;

    std::unique_ptr<TransportConnection> connection(const TransportParameters& parameters) override;

    /// Calls `tell` with one line, without control characters, about what goes wrong below the engine: why
    /// no link can be made, or that a link is dead. The same trouble is told only once until a link has been
    /// ready.
    void onTrouble(std::function<void(std::string)> tell);

    /// Finds out whether the peers have read everything that was sent before this call: they must answer
    /// a ping that is sent behind it.
    /// @param done  called once, never inside this call: true if they have; false if no link is ready,
    ///        one was lost, or `atMost` has passed. Not called if the transport dies before.
    void drain(Seconds atMost, std::function<void(bool)> done);

private:
    struct Trouble;
    class Drain;

    MainLoop& loop;
    std::shared_ptr<Trouble> trouble;  // shared with the connections, which may live longer
    std::vector<std::weak_ptr<QtLink>> links;
    std::vector<std::shared_ptr<Drain>> drains;
};
