#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// The address of a chat server.
///
/// JSON: {"url": the URL's absolute text}. Compared and hashed through its URL.
class Endpoint {
public:
    /// Takes a URL; one of the scheme "vimble" becomes the "https" URL of the same host. What is no URL
    /// is taken as it stands.
    explicit Endpoint(std::string_view url);

    /// No address: what a decoder starts from.
    Endpoint() = default;

    /// What a user typed, or a link delivered: a full address, "localhost" for a server on this machine,
    /// or a host name with a path or none. Nothing for anything else.
    static std::optional<Endpoint> parse(std::string_view text);

    /// The service's public server.
    static const Endpoint& defaultEndpoint();

    /// The short text that `parse` takes, where there is one; else the whole URL.
    std::string displayString() const;

    /// The base URL's absolute text. The WebSocket goes to this URL with the path component "relay",
    /// and the server's files lie under this name.
    const std::string& url() const { return _url; }

    bool operator==(const Endpoint&) const = default;

private:
    std::string _url;
};

/// For the printed form of values that hold one.
void appendPrinted(std::string& out, const Endpoint& endpoint);

template <>
struct std::hash<Endpoint> {
    std::size_t operator()(const Endpoint& endpoint) const { return std::hash<std::string>()(endpoint.url()); }
};
