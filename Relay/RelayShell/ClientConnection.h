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
/// What is sent is gathered, and written by `flush` once a turn of the server's loop; its socket is read
/// once a turn, so that one flood neither fills the turn nor escapes the limits that are looked at when
/// the turn ends. Held by the
/// pending operations of its socket and by the server, which hears of it by `Server::forget` when it
/// has ended.
class ClientConnection : public RelayLink,
                         public std::enable_shared_from_this<ClientConnection>,
                         private WebsocketReader::Sink {
public:
    /// @param address  of the other side, for the limits
    ClientConnection(Server& server, Tcp::Socket socket, std::string address, Date now);
    ~ClientConnection() override;

    void start();

    // What the relay's logic asks.
    void send(ByteView frame) override;
    void ping(std::uint64_t payload) override;
    void close(CloseCode code, std::string_view reason) override;

    /// Writes what was gathered, as far as the socket takes it.
    void flush();
    /// Looks at the time limits of the request and of closing.
    void checkDeadline(Date now);
    /// Ends at once, without another word.
    void abort();

    const std::string& peerAddress() const { return address; }

private:
    enum class Phase {
        request,  // waits for the end of its HTTP request
        greeted,  // a link whose first message has not come
        link,     // a link whose first message has come
        closing,  // sends what is left to send, and then shuts its side of the socket
        shut,     // has sent it, or all but the good-bye of TLS, and waits for the other side to close
        ended,
    };
    /// What the end of the turn brings; each includes the ones before it.
    enum class TurnEnd {
        nothing,  // is not in the server's list of connections to flush
        flush,
        read,  // waits for its socket again
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
    Bytes partial;              // what was read and is not complete
    std::optional<Bytes> pong;  // answers the newest ping: older ones need no answer (RFC 6455, section 5.5.3)
    Bytes out;                  // what is to be sent, before TLS
    Bytes sealedOut;            // the same behind TLS
    std::size_t written = 0;    // how much of it the socket has taken
    bool isSocketFull = false;  // waits until the socket takes more
};
