#include "RelayShell/ClientConnection.h"

#include "RelayShell/HttpFront.h"
#include "RelayShell/Server.h"

#include <algorithm>
#include <utility>

namespace {

// So many gathered bytes are written before the turn ends, so that one turn does not gather without bounds.
constexpr std::size_t earlyFlush = 256 * 1024;
// A buffer that was emptied keeps at most this capacity, so that quiet connections hold little memory.
constexpr std::size_t keptRoom = 64 * 1024;
// Time that the other side has to read our close frame and to close the connection too.
constexpr Seconds closingTime = 2;

constexpr std::uint16_t normalClosure = 1000;

void emptied(Bytes& bytes) {
    if (bytes.capacity() > keptRoom)
        Bytes().swap(bytes);
    else
        bytes.clear();
}

}  // namespace

ClientConnection::ClientConnection(Server& server, Tcp::Socket socket, std::string address, Date now)
    : server(server),
      socket(std::move(socket)),
      address(std::move(address)),
      reader(server.options().limits.frameBytes),
      deadline(now + server.options().requestTime) {
    if (const auto& context = server.tlsContext()) tls = std::make_unique<TlsSession>(*context);
}

ClientConnection::~ClientConnection() = default;

void ClientConnection::start() { waitToRead(); }

// ---- reading

void ClientConnection::waitToRead() {
    socket.async_wait(Tcp::Socket::wait_read, [self = shared_from_this()](Tcp::Error error) { self->readable(error); });
}

void ClientConnection::readable(Tcp::Error error) {
    if (phase == Phase::ended) return;
    if (error) return end();
    const auto scratch = server.scratch();
    const std::size_t count = socket.read_some(boost::asio::buffer(scratch.data(), scratch.size()), error);
    if (error && error != boost::asio::error::would_block) return end();
    if (count > 0) {
        server.counters().bytesReceived += count;
        receive(scratch.first(count));
    }
    if (phase != Phase::ended) gather(TurnEnd::read);
}

void ClientConnection::receive(std::span<std::uint8_t> arrived) {
    if (!tls) return consume(arrived);
    Bytes& plain = server.plainScratch();
    plain.clear();
    const bool goesOn = tls->receive(arrived, plain);
    gather();
    if (!plain.empty()) consume(plain);
    if (goesOn || phase == Phase::ended) return;
    if (phase == Phase::request) ++server.counters().tlsFailures;
    // Do not end at once: the TLS alert for the client is written at the end of the turn.
    gather(TurnEnd::end);
}

void ClientConnection::consume(std::span<std::uint8_t> plain) {
    const bool isFromPartial = !partial.empty();
    if (isFromPartial) {
        partial.insert(partial.end(), plain.begin(), plain.end());
        plain = partial;
    }
    std::size_t used = 0;
    if (phase == Phase::request) used = consumeRequest(plain);
    if (isLink()) used += consumeFrames(plain.subspan(used));
    if (isClosing() || phase == Phase::ended) used = plain.size();  // drop it: nobody reads it while closing
    if (!isFromPartial) {
        partial.assign(plain.begin() + static_cast<std::ptrdiff_t>(used), plain.end());
    } else if (used == partial.size()) {
        emptied(partial);
    } else {
        partial.erase(partial.begin(), partial.begin() + static_cast<std::ptrdiff_t>(used));
    }
}

std::size_t ClientConnection::consumeRequest(ByteView bytes) {
    const auto verdict = HttpFront::judge(bytes, server.options().headerBytes);
    if (!verdict) return 0;
    const std::string& place =
        server.options().isBehindProxy && !verdict->forwardedFor.empty() ? verdict->forwardedFor : address;
    std::string response = verdict->response;
    switch (verdict->kind) {
        case HttpVerdict::Kind::upgrade: break;
        case HttpVerdict::Kind::healthz: {
            const auto& failure = server.core().storeFailure();
            response = failure ? HttpFront::response(503, "text/plain", "the database fails\n")
                               : HttpFront::response(200, "text/plain", "ok\n");
            break;
        }
        case HttpVerdict::Kind::metrics:
            response = server.options().hasOpenMetrics || Server::isThisMachine(place)
                           ? HttpFront::response(200, "text/plain; version=0.0.4", server.metrics())
                           : HttpFront::response(403, "text/plain", "Only for this machine.\n");
            break;
        case HttpVerdict::Kind::answer: break;
    }
    const auto text = bytesOf(response);
    out.insert(out.end(), text.begin(), text.end());
    gather();
    if (verdict->kind != HttpVerdict::Kind::upgrade) {
        ++server.counters().requestsAnswered;
        beginClosing();
        return bytes.size();
    }
    ++server.counters().upgrades;
    phase = Phase::greeted;
    server.core().linkOpened(*this, Server::limitedPlace(place), server.now());
    return verdict->used;
}

std::size_t ClientConnection::consumeFrames(std::span<std::uint8_t> bytes) {
    const std::size_t used = reader.read(bytes, *this);
    if (const auto code = reader.error(); code && isLink()) {
        ++(*code == 1009   ? server.counters().closedFrameSize
           : *code == 1003 ? server.counters().closedText
                           : server.counters().closedProtocol);
        server.core().linkClosed(*this, server.now());
        answerPing();
        WebsocketWriter::appendClose(out, *code, {});
        gather();
        beginClosing();
    }
    return used;
}

bool ClientConnection::onMessage(ByteView message) {
    if (phase == Phase::greeted) {
        phase = Phase::link;
        // Read the members anew: one who was admitted on the command line just now must not be refused for good.
        server.lookAtMembers();
    }
    server.core().frameReceived(*this, message, server.now());
    return isLink();
}

bool ClientConnection::onPing(ByteView payload) {
    // Keep only the newest ping: a client that sends pings and never reads would fill the memory otherwise.
    pong.emplace(payload.begin(), payload.end());
    gather();
    return true;
}

bool ClientConnection::onPong(ByteView payload) {
    if (payload.size() == sizeof(std::uint64_t)) {
        std::uint64_t value = 0;
        for (const std::uint8_t byte : payload) value = value << 8 | byte;
        server.core().pongReceived(*this, value, server.now());
    }
    return isLink();
}

void ClientConnection::onClose(std::optional<std::uint16_t> code) {
    server.core().linkClosed(*this, server.now());
    answerPing();
    WebsocketWriter::appendClose(out, code.value_or(normalClosure), {});
    gather();
    beginClosing();
}

// ---- writing

void ClientConnection::send(ByteView frame) {
    WebsocketWriter::appendMessage(out, frame);
    gather();
    if (out.size() >= earlyFlush && !isSocketFull) write();
}

void ClientConnection::ping(std::uint64_t payload) {
    WebsocketWriter::appendPing(out, payload);
    gather();
}

void ClientConnection::close(CloseCode code, std::string_view reason) {
    answerPing();
    WebsocketWriter::appendClose(out, static_cast<std::uint16_t>(code), reason);
    gather();
    beginClosing();
}

void ClientConnection::answerPing() {
    if (pong) WebsocketWriter::appendPong(out, *pong);
    pong.reset();
}

void ClientConnection::gather(TurnEnd wanted) {
    if (turnEnd == TurnEnd::nothing) server.gathered(shared_from_this());
    turnEnd = std::max(turnEnd, wanted);
}

void ClientConnection::flush() {
    const TurnEnd wanted = std::exchange(turnEnd, TurnEnd::nothing);
    if (phase == Phase::ended) return;
    if (!isSocketFull) write();
    if (wanted == TurnEnd::end || turnEnd == TurnEnd::end) return end();
    if (wanted == TurnEnd::read) waitToRead();
}

void ClientConnection::write() {
    if (isLink()) answerPing();
    if (tls) {
        if (!tls->send(out)) return gather(TurnEnd::end);
        emptied(out);
        tls->takeOutput(sealedOut);
    }
    Bytes& bytes = tls ? sealedOut : out;
    while (written < bytes.size()) {
        Tcp::Error error;
        const auto rest = boost::asio::buffer(bytes.data() + written, bytes.size() - written);
        const std::size_t count = socket.write_some(rest, error);
        ++server.counters().writes;
        server.counters().bytesSent += count;
        written += count;
        if (error == boost::asio::error::would_block) {
            isSocketFull = true;
            socket.async_wait(Tcp::Socket::wait_write, [self = shared_from_this()](Tcp::Error waitError) {
                self->isSocketFull = false;
                if (waitError || self->phase == Phase::ended) return;
                self->gather();
            });
            return;
        }
        if (error) return gather(TurnEnd::end);
    }
    emptied(bytes);
    written = 0;
    if (!isClosing()) return;
    if (std::exchange(phase, Phase::shut) == Phase::closing && tls) {
        tls->close();
        tls->takeOutput(sealedOut);
        return write();
    }
    Tcp::Error error;
    socket.shutdown(Tcp::Socket::shutdown_send, error);
}

// ---- the end

void ClientConnection::beginClosing() {
    // Go on reading until the other side has closed: to close a socket that holds unread bytes would reset
    // the connection, and our close frame could be lost.
    phase = Phase::closing;
    deadline = server.now() + closingTime;
}

void ClientConnection::checkDeadline(Date now) {
    if ((phase != Phase::request && !isClosing()) || now < deadline) return;
    if (phase == Phase::request) ++server.counters().requestsLate;
    abort();
}

void ClientConnection::abort() { end(); }

void ClientConnection::end() {
    if (phase == Phase::ended) return;
    const auto self = shared_from_this();
    if (isLink()) server.core().linkClosed(*this, server.now());
    phase = Phase::ended;
    Tcp::Error error;
    socket.close(error);
    server.forget(self);
}
