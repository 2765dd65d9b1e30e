#pragma once

#include "Base/Bytes.h"
#include "StateKit/Host.h"
#include "StateKit/SignalTarget.h"
#include "StateKit/Transport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class Websocket;

/// Is told what happens to a `Websocket`, which holds its delegate weakly.
class WebsocketDelegate {
public:
    virtual ~WebsocketDelegate() = default;

    /// The transport has become ready.
    virtual void websocketDidConnect(Websocket& websocket) = 0;
    /// The connection ended after it had been ready; once for each connection.
    virtual void websocketDidDisconnect(Websocket& websocket, const std::optional<TransportError>& error,
                                        std::optional<CloseCode> closeCode) = 0;
    /// A complete message has arrived, text or binary alike.
    virtual void websocketDidReceive(Websocket& websocket, ByteView message) = 0;
};

/// A WebSocket client for one URL.
///
/// It knows nothing of what the messages mean. The delegate hears of a connection only once it is ready,
/// and of its end at most once; the caller has to give up a connection that never becomes ready.
///
/// Main thread only; all delegate calls are made there, from the transport's handlers. The delegate may
/// connect, close or destroy this object inside any of them. Destroying it cancels its connection.
class Websocket : public SignalTarget {
public:
    /// @param transport, host  must outlive this object
    Websocket(Transport& transport, const Host& host, std::string url);
    ~Websocket();

    void setDelegate(Weak<WebsocketDelegate> newDelegate) { delegate = newDelegate; }

    /// Opens a connection, replacing any earlier one, which then reports nothing more.
    /// @param token  sent as the "Authorization" header, if given
    void connect(const std::optional<std::string>& token = {});

    /// Sends a close frame and then cancels the connection; one that is not ready is cancelled at once.
    void close(CloseCode code);

    /// One binary message; dropped in silence unless the connection is ready.
    void send(Bytes bytes);
    /// One text message, likewise.
    void send(std::string_view text);

    bool isConnected() const { return _isConnected; }
    const std::string url;

private:
    void stateChanged(TransportState state, const std::optional<TransportError>& error);
    void received(const TransportMessage& message);
    void disconnected(const std::optional<TransportError>& error, std::optional<CloseCode> code);
    void send(Opcode opcode, Bytes content);

    Transport& transport;
    const Host& host;
    bool _isConnected = false;  // from ready to the first report of a disconnection
    Weak<WebsocketDelegate> delegate;
    std::unique_ptr<TransportConnection> connection;
    std::uint64_t connectionNumber = 0;  // of the present connection, counted from 1
    std::optional<CloseCode> closeCode;  // from a close frame that the present connection received
};
