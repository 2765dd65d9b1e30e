#include "RelayClient.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;

using Error = boost::system::error_code;
using PlainStream = asio::ip::tcp::socket;
using TlsStream = asio::ssl::stream<asio::ip::tcp::socket>;

}  // namespace

/// A connection with or without TLS.
class RelayClient::Link {
public:
    virtual ~Link() = default;
    virtual bool upgrade(const std::string& path) = 0;
    virtual bool send(const Bytes& frame) = 0;
    virtual std::optional<Bytes> read() = 0;
    virtual void fragment(std::size_t bytes) = 0;
    virtual int reasonCode() const = 0;
    virtual std::string certificateName() const = 0;

    Error error;
};

template <class Stream>
class RelayClient::LinkOver : public Link {
public:
    template <class... Arguments>
    explicit LinkOver(std::uint16_t port, Arguments&... arguments) : stream(context, arguments...) {
        auto& socket = beast::get_lowest_layer(stream);
        socket.connect({asio::ip::make_address("127.0.0.1"), port});
        socket.set_option(asio::ip::tcp::no_delay(true));
        stream.binary(true);
    }

    bool upgrade(const std::string& path) override {
        if constexpr (std::is_same_v<Stream, TlsStream>) {
            if (!await([&](auto done) { stream.next_layer().async_handshake(asio::ssl::stream_base::client, done); }))
                return false;
        }
        return await([&](auto done) { stream.async_handshake("localhost", path, done); });
    }
    bool send(const Bytes& frame) override {
        return await([&](auto done) {
            stream.async_write(asio::buffer(frame), [done](Error code, std::size_t) { done(code); });
        });
    }
    std::optional<Bytes> read() override {
        beast::flat_buffer buffer;
        if (!await([&](auto done) { stream.async_read(buffer, [done](Error code, std::size_t) { done(code); }); }))
            return std::nullopt;
        const auto* data = static_cast<const std::uint8_t*>(buffer.data().data());
        return Bytes(data, data + buffer.size());
    }
    void fragment(std::size_t bytes) override {
        stream.auto_fragment(bytes > 0);
        if (bytes > 0) stream.write_buffer_bytes(bytes);
    }
    int reasonCode() const override { return static_cast<int>(stream.reason().code); }
    std::string certificateName() const override {
        char name[100] = "";
        if constexpr (std::is_same_v<Stream, TlsStream>) {
            auto& shaken = const_cast<TlsStream&>(stream.next_layer());
            X509* shown = SSL_get1_peer_certificate(shaken.native_handle());
            if (shown) X509_NAME_get_text_by_NID(X509_get_subject_name(shown), NID_commonName, name, sizeof name);
            X509_free(shown);
        }
        return name;
    }

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
        // End the pending operation before returning: its buffers are the caller's, and go out of scope.
        beast::get_lowest_layer(stream).close();
        context.restart();
        context.run();
        error = asio::error::timed_out;
        return false;
    }

    asio::io_context context;
    beast::websocket::stream<Stream> stream;
};

RelayClient::RelayClient(const Somebody& owner, std::uint16_t port, Security security) : owner(owner) {
    if (security == Security::tls) {
        asio::ssl::context tls(asio::ssl::context::tls_client);
        link = std::make_unique<LinkOver<TlsStream>>(port, tls);
    } else {
        link = std::make_unique<LinkOver<PlainStream>>(port);
    }
}

RelayClient::~RelayClient() = default;

bool RelayClient::upgrade(const std::string& path) {
    if (!link->upgrade(path)) return false;
    const auto greeting = read();
    if (!greeting) return false;
    serverKey = Greeting::decoded(*greeting);
    return serverKey.has_value();
}

bool RelayClient::list() {
    say("list");
    return readUntil([&] { return !lists.empty(); });
}

bool RelayClient::send(const Bytes& frame) { return link->send(frame); }

void RelayClient::fragment(std::size_t bytes) { link->fragment(bytes); }

std::optional<Bytes> RelayClient::read() { return link->read(); }

bool RelayClient::readUntil(const std::function<bool()>& holds) {
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

bool RelayClient::knows(const Somebody& person) const {
    return !lists.empty() && std::any_of(lists.back().begin(), lists.back().end(),
                                         [&](const MetaPerson& each) { return each.publicKey == person.hex(); });
}

int RelayClient::closeCode() {
    readUntil([] { return false; });
    return link->error == beast::websocket::error::closed ? reasonCode() : 0;
}

int RelayClient::reasonCode() const { return link->reasonCode(); }

std::string RelayClient::certificateName() const { return link->certificateName(); }

std::string RelayClient::error() const { return link->error.message(); }
