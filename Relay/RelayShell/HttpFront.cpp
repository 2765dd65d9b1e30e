#include "RelayShell/HttpFront.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/detail/base64.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <boost/beast/http/status.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include <openssl/sha.h>

#include <string_view>

namespace http = boost::beast::http;

namespace {

HttpVerdict refusal(int status, const std::string& text, const std::string& extraHeader = {}) {
    return {HttpVerdict::Kind::answer, HttpFront::response(status, "text/plain", text + "\n", extraHeader), {}, 0};
}

std::string base64(ByteView bytes) {
    std::string text(boost::beast::detail::base64::encoded_size(bytes.size()), '\0');
    text.resize(boost::beast::detail::base64::encode(text.data(), bytes.data(), bytes.size()));
    return text;
}

/// The answer that proves to the client that its handshake was understood (RFC 6455, section 4.2.2).
std::string acceptKey(std::string_view key) {
    const std::string text = std::string(key) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
    return base64(digest);
}

/// 16 bytes in base64.
bool isKey(std::string_view key) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    return key.size() == 24 && key.ends_with("==") && key.find_first_not_of(digits) == 22;
}

std::string_view viewOf(boost::beast::string_view text) { return {text.data(), text.size()}; }

HttpVerdict upgrade(const http::request<http::empty_body>& request) {
    const std::string wanted = "Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\n";
    if (request.version() != 11 || !boost::beast::websocket::is_upgrade(request))
        return refusal(426, "This is a WebSocket.", wanted);
    if (viewOf(request[http::field::sec_websocket_version]) != "13")
        return refusal(426, "Version 13 of the WebSocket protocol is wanted.", wanted);
    const std::string_view key = viewOf(request[http::field::sec_websocket_key]);
    if (!isKey(key)) return refusal(400, "That is no WebSocket key.");
    HttpVerdict verdict;
    verdict.kind = HttpVerdict::Kind::upgrade;
    verdict.response =
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
        acceptKey(key) + "\r\n\r\n";
    return verdict;
}

/// Takes the last address: the proxy wrote it, while the client may have made up those before it.
std::string lastAddress(std::string_view forwarded) {
    forwarded.remove_prefix(forwarded.rfind(',') + 1);  // npos + 1 is 0
    const auto start = forwarded.find_first_not_of(" \t");
    if (start == std::string_view::npos) return {};
    forwarded.remove_prefix(start);
    return std::string(forwarded.substr(0, std::min<std::size_t>(forwarded.find_last_not_of(" \t") + 1, 64)));
}

HttpVerdict route(const http::request<http::empty_body>& request) {
    std::string_view path = viewOf(request.target());
    path = path.substr(0, path.find('?'));
    const bool isRelay = path.ends_with("/relay");
    if (!isRelay && path != "/healthz" && path != "/metrics") return refusal(404, "There is nothing here.");
    if (request.method() != http::verb::get) return refusal(405, "Only GET is understood.", "Allow: GET\r\n");
    if (isRelay) return upgrade(request);
    HttpVerdict verdict;
    verdict.kind = path == "/healthz" ? HttpVerdict::Kind::healthz : HttpVerdict::Kind::metrics;
    return verdict;
}

}  // namespace

std::optional<HttpVerdict> HttpFront::judge(ByteView received, std::size_t maxHeader) {
    http::request_parser<http::empty_body> parser;
    parser.header_limit(static_cast<std::uint32_t>(maxHeader));
    boost::beast::error_code error;
    const std::size_t used = parser.put(boost::asio::const_buffer(received.data(), received.size()), error);
    if (error == http::error::header_limit || (!parser.is_header_done() && received.size() > maxHeader))
        return refusal(431, "That request is too long.");
    if (error == http::error::need_more) return std::nullopt;
    if (error && error != http::error::body_limit && error != http::error::unexpected_body)
        return refusal(400, "That is no HTTP request.");
    if (!parser.is_header_done()) return std::nullopt;
    HttpVerdict verdict = route(parser.get());
    // The last line wins: a proxy may add a line of its own behind those of the client.
    const auto [first, end] = parser.get().equal_range("X-Forwarded-For");
    for (auto field = first; field != end; ++field) verdict.forwardedFor = lastAddress(viewOf(field->value()));
    verdict.used = used;
    return verdict;
}

std::string HttpFront::response(int status, const std::string& contentType, const std::string& body,
                                const std::string& extraHeader) {
    const auto reason = http::obsolete_reason(static_cast<http::status>(status));
    return "HTTP/1.1 " + std::to_string(status) + " " + std::string(reason.data(), reason.size()) +
           "\r\nContent-Type: " + contentType + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nCache-Control: no-store\r\nConnection: close\r\n" + extraHeader + "\r\n" + body;
}
