#pragma once

#include "RelayProcess.h"
#include "RelayWorld.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

/// A client over a real socket, with the WebSocket of another library than the relay's own.
///
/// It answers pings while it reads, and only then: one that does not read proves nothing.
template <class Stream>
class BasicRelayClient {
public:
    using Error = boost::system::error_code;

    template <class... Arguments>
    BasicRelayClient(const Somebody& owner, std::uint16_t port, Arguments&... arguments)
        : owner(owner), stream(context, arguments...) {
        auto& socket = boost::beast::get_lowest_layer(stream);
        socket.connect({boost::asio::ip::make_address("127.0.0.1"), port});
        socket.set_option(boost::asio::ip::tcp::no_delay(true));
        stream.binary(true);
    }

    /// Shakes hands, and says "list" in answer to the greeting.
    bool join() { return upgrade() && list(); }

    bool upgrade(const std::string& path = "/relay") {
        if constexpr (!std::is_same_v<Stream, boost::asio::ip::tcp::socket>) {
            if (!await([&](auto done) {
                    stream.next_layer().async_handshake(boost::asio::ssl::stream_base::client, done);
                }))
                return false;
        }
        if (!await([&](auto done) { stream.async_handshake("localhost", path, done); })) return false;
        const auto greeting = read();
        if (!greeting) return false;
        serverKey = Greeting::decoded(*greeting);
        return serverKey.has_value();
    }
    bool list() {
        say("list");
        return readUntil([&] { return !lists.empty(); });
    }

    bool send(const Bytes& frame) {
        return await([&](auto done) {
            stream.async_write(boost::asio::buffer(frame), [done](Error code, std::size_t) { done(code); });
        });
    }
    bool say(const std::string& command) { return send(RelayWorld::packOf(owner, *serverKey, command)); }
    bool write(const Somebody& target, const std::string& text) {
        return send(RelayWorld::packOf(owner, target.key(), text));
    }

    /// The next message; nothing when the link ends, or none comes in time.
    std::optional<Bytes> read() {
        boost::beast::flat_buffer buffer;
        if (!await([&](auto done) { stream.async_read(buffer, [done](Error code, std::size_t) { done(code); }); }))
            return std::nullopt;
        const auto* data = static_cast<const std::uint8_t*>(buffer.data().data());
        return Bytes(data, data + buffer.size());
    }
    /// Reads and sorts messages until this holds. @return false when the link ended first
    template <class Condition>
    bool readUntil(const Condition& holds) {
        while (!holds()) {
            const auto frame = read();
            if (!frame) return false;
            const Pack open = EncryptedPack::parse(*frame)->decrypted(owner.keys.secretKey);
            if (open.authorKey != *serverKey) {
                texts.emplace_back(textOf(open.plaintext));
                continue;
            }
            const auto message = ServerMessage::decoded(open.plaintext);
            if (message->kind == ServerMessage::list)
                lists.push_back(*ServerMessage::decodedList(message->body));
            else
                answers.push_back(message->kind + " " + PackPlaintext::decoded(message->body)->text.value_or(""));
        }
        return true;
    }
    bool readTexts(std::size_t count) {
        return readUntil([&] { return texts.size() >= count; });
    }
    bool knows(const Somebody& person) const {
        return !lists.empty() && std::any_of(lists.back().begin(), lists.back().end(),
                                             [&](const MetaPerson& each) { return each.publicKey == person.hex(); });
    }
    /// Reads until the link ends. @return the close code; 0 without one
    int closeCode() {
        readUntil([] { return false; });
        return error == boost::beast::websocket::error::closed ? static_cast<int>(stream.reason().code) : 0;
    }

    const Somebody& owner;
    std::optional<PublicKey> serverKey;
    std::vector<std::string> texts;
    std::vector<std::vector<MetaPerson>> lists;
    std::vector<std::string> answers;
    Error error;

    boost::asio::io_context context;
    boost::beast::websocket::stream<Stream> stream;

private:
    template <class Start>
    bool await(const Start& start) {
        bool isDone = false;
        context.restart();
        start([&](Error code) {
            error = code;
            isDone = true;
        });
        context.run_for(patience);
        if (isDone) return !error;
        // Its buffers are about to go.
        boost::beast::get_lowest_layer(stream).close();
        context.restart();
        context.run();
        error = boost::asio::error::timed_out;
        return false;
    }
};

using RelayClient = BasicRelayClient<boost::asio::ip::tcp::socket>;
using TlsRelayClient = BasicRelayClient<boost::asio::ssl::stream<boost::asio::ip::tcp::socket>>;
