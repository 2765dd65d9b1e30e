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
    /// Takes a URL, in which the scheme "vimble" becomes "https". A text that is no URL is kept unchanged.
    explicit Endpoint(std::string_view url);

    /// No address. Decoding starts from it.
    Endpoint() = default;

    /// Reads what a user has typed or a link contains: a full address, "localhost" for a server on this
    /// machine, or a host name with or without a path. Gives nothing for any other text.
    [[nodiscard]] static std::optional<Endpoint> parse(std::string_view text);

    /// The service's public server.
    static const Endpoint& defaultEndpoint();

    /// The short text from which `parse` makes this address, if there is one; else the whole URL.
    std::string displayString() const;

    /// The absolute text of the URL. The WebSocket goes to this URL with "relay" added as a path component,
    /// and what is stored of the server is stored under this text.
    const std::string& url() const { return _url; }

    bool operator==(const Endpoint&) const = default;

private:
    std::string _url;
};

/// `printed` uses this for values that contain an endpoint.
void appendPrinted(std::string& out, const Endpoint& endpoint);

template <>
struct std::hash<Endpoint> {
    std::size_t operator()(const Endpoint& endpoint) const { return std::hash<std::string>()(endpoint.url()); }
};
