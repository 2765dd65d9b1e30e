#include "VimbleKit/Endpoint.h"

#include "Base/Check.h"
#include "Text/Text.h"
#include "Text/Url.h"

#include <algorithm>
#include <vector>

namespace {

constexpr std::string_view developmentServer = "http://localhost:8080";

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return (x >= 'A' && x <= 'Z' ? x + 32 : x) == (y >= 'A' && y <= 'Z' ? y + 32 : y);
    });
}

/// The number of pieces between dots, without the empty ones.
std::size_t pieceCount(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < text.size(); ++at)
        if (text[at] != '.' && (at == 0 || text[at - 1] == '.')) ++count;
    return count;
}

/// The "https" URL of a host and a path (given without its first slash); nothing if they make no URL.
std::optional<Url> httpsUrl(std::string_view host, std::optional<std::string_view> path) {
    Url wanted;
    wanted.scheme = "https";
    wanted.host = host;
    if (path) wanted.path = "/" + std::string(*path);
    // If parsing moves a part elsewhere (to the port, to the query), the texts were no host and no path.
    const auto url = Url::parse(wanted.text());
    return url == wanted && !host.empty() ? url : std::nullopt;
}

}  // namespace

Endpoint::Endpoint(std::string_view text) : _url(text) {
    auto url = Url::parse(text);
    if (!url) return;
    if (url->scheme && equalsIgnoringCase(*url->scheme, "vimble")) url->scheme = "https";
    _url = url->text();
}

std::optional<Endpoint> Endpoint::parse(std::string_view typed) {
    const std::string_view text = Text::trimmed(typed);
    if (text.empty()) return std::nullopt;
    if (const auto url = Url::parse(text); url && url->scheme) return Endpoint(url->text());
    if (text == "localhost") return Endpoint(developmentServer);
    if (Text::hasWhitespace(text)) return std::nullopt;
    if (pieceCount(text) == 1) return std::nullopt;  // a bare word is no host name

    const std::size_t slash = text.find('/');
    const auto path = slash == std::string_view::npos ? std::nullopt : std::optional(text.substr(slash + 1));
    const auto url = httpsUrl(text.substr(0, slash), path);
    return url ? std::optional(Endpoint(url->text())) : std::nullopt;
}

const Endpoint& Endpoint::defaultEndpoint() {
    static const Endpoint endpoint = [] {
        const auto url = Url::parse("https://" VIMBLE_DEFAULT_SERVER);
        check(url && url->host, "the default server's host must make a URL");
        return Endpoint(url->text());
    }();
    return endpoint;
}

std::string Endpoint::displayString() const {
    const auto url = Url::parse(_url);
    if (!url) return _url;
    if (_url == developmentServer) return "localhost";
    if (url->scheme == "https" && url->host && !url->port && !url->userInfo && !url->query && !url->fragment)
        return *url->host + url->path;
    return _url;
}

void appendPrinted(std::string& out, const Endpoint& endpoint) { out += "Endpoint(url: " + endpoint.url() + ")"; }
