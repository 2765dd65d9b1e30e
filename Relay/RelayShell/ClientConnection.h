#pragma once

#include "RelayCore/RelayLink.h"
#include "RelayShell/Net.h"
#include "RelayShell/Tls.h"
#include "RelayShell/WebsocketFrames.h"

#include "StateKit/Date.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class Server;

/// One TCP connection: TLS where it is on, then one HTTP request, then perhaps a WebSocket link.
///
/// `send` only gathers bytes; `flush` writes them once a turn of the server's loop. The socket is read once a
/// turn too, so that a client that floods neither fills the turn nor escapes the limits that are checked when
/// the turn ends. The connection is owned by the pending operations of its socket and by the server, which it
/// tells by `Server::forget` that it has ended.
class ClientConnection : public RelayLink,
                         public std::enable_shared_from_this<ClientConnection>,
                         private WebsocketReader::Sink {
public:
    /// @param address  IP address of the other side, for the limits per address
    ClientConnection(Server& server, Tcp::Socket socket, std::string address, Date now);
    ~ClientConnection() override;

    void start();

    // For the relay's logic.
    void send(ByteView frame) override;
    void ping(std::uint64_t payload) override;
    void close(CloseCode code, std::string_view reason) override;

    /// Writes what was gathered, as far as the socket takes it.
    void flush();
    /// Ends the connection if the time limit of its request or of its closing has passed.
    void checkDeadline(Date now);
    /// Ends at once, without a close frame.
    void abort();

    const std::string& peerAddress() const { return address; }

private:
    enum class Phase {
        request,  // waits for the end of its HTTP request
        greeted,  // a link whose first message has not come
        link,     // a link whose first message has come
        closing,  // sends the gathered bytes, and then shuts its side of the socket
        shut,     // has sent them, except perhaps the close_notify of TLS; waits for the other side to close
        ended,
    };
    /// What `flush` does at the end of the turn; each value includes the ones before it.
    enum class TurnEnd {
        nothing,  // is not in the server's list of connections to flush
        flush,
        read,  // waits until its socket can be read again
        end,
    };

    bool isLink() const { return phase == Phase::greeted || phase == Phase::link; }
    bool isClosing() const { return phase == Phase::closing || phase == Phase::shut; }

    void waitToRead();
    void readable(Tcp::Error error);
    void receive(std::span<std::uint8_t> arrived);
    void consume(std::span<std::uint8_t> plain);
    std::size_t consumeRequest(ByteView bytes);
    std::size_t consumeFrames(std::span<std::uint8_t> bytes);

    bool onMessage(ByteView message) override;
    bool onPing(ByteView payload) override;
    bool onPong(ByteView payload) override;
    void onClose(std::optional<std::uint16_t> code) override;

    void gather(TurnEnd wanted = TurnEnd::flush);
    void answerPing();
    void write();
    void beginClosing();
    void end();

    Server& server;
    Tcp::Socket socket;
    std::string address;  // of the other side of the socket
    std::unique_ptr<TlsSession> tls;
    WebsocketReader reader;
    Phase phase = Phase::request;
    TurnEnd turnEnd = TurnEnd::nothing;
    Date deadline;              // of the request, or of closing
    Bytes partial;              // the start of a request or frame whose rest has not arrived
    std::optional<Bytes> pong;  // answers the newest ping: older ones need no answer (RFC 6455, section 5.5.3)
    Bytes out;                  // bytes to send, before TLS
    Bytes sealedOut;            // bytes to send, encrypted by TLS
    std::size_t written = 0;    // bytes that the socket has taken, of `sealedOut` with TLS, else of `out`
    bool isSocketFull = false;  // a wait is pending until the socket takes more
};
