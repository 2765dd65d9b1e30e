#pragma once

#include "Base/Bytes.h"
#include "StateKit/CloseCode.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The states of one WebSocket connection, in the order in which a successful one passes through them.
///
/// `waiting`: the connection could not be made for a reason that may pass, and the transport tries again
/// by itself. Messages can be sent only in `ready`. `failed` and `cancelled` are final.
enum class TransportState { setup, preparing, waiting, ready, failed, cancelled };

/// What a message is, by the numbers of RFC 6455, section 5.2.
enum class Opcode : std::uint8_t { continuation = 0, text = 1, binary = 2, close = 8, ping = 9, pong = 10 };

/// Why a connection could not be made, or ended, in words for the log.
struct TransportError {
    std::string text;

    bool operator==(const TransportError&) const = default;
};

/// One complete message.
struct TransportMessage {
    Opcode opcode = Opcode::binary;
    Bytes content;
    std::optional<CloseCode> closeCode;  // with `Opcode::close` only, and there only if the frame had one
};

/// How a connection is to be made.
struct TransportParameters {
    std::string url;  // from the user's endpoint, unchecked: may have any scheme, or be no URL
    bool usesTls = true;
    std::vector<std::pair<std::string, std::string>> headers;  // of the opening handshake, in order
};

/// One WebSocket connection of version 13, from its making to its end.
///
/// It answers pings by itself and reports everything through the handlers, on the main thread and never
/// from inside a call of its owner: the owner may destroy it inside a handler. The end of a link is
/// reported once: as `received` of a close message where the peer sent one, followed by `receiveFailed`,
/// or `receiveFailed` alone; a connection that can't be saved goes to `failed`. Destroying it closes it
/// without any further report. Main thread only.
class TransportConnection {
public:
    struct Handlers {
        /// @param error  with `waiting` and `failed`
        std::function<void(TransportState state, const std::optional<TransportError>& error)> stateChanged;
        std::function<void(TransportMessage message)> received;
        std::function<void(const TransportError& error)> receiveFailed;
    };

    virtual ~TransportConnection() = default;

    /// Begins connecting. Once.
    virtual void start(Handlers handlers) = 0;

    virtual TransportState state() const = 0;

    /// Sends one complete message; only in the state `ready`.
    /// @param completion  called once the message is handed over, or with the error that prevented it;
    ///        may be empty. Never called after the connection's destruction.
    virtual void send(TransportMessage message,
                      std::function<void(const std::optional<TransportError>&)> completion) = 0;

    /// Ends the connection at once, in any state. `stateChanged` with `cancelled` follows.
    virtual void cancel() = 0;
};

/// Makes connections. The engine knows nothing else of the network.
class Transport {
public:
    virtual ~Transport() = default;
    [[nodiscard]] virtual std::unique_ptr<TransportConnection> connection(const TransportParameters& parameters) = 0;
};
