#include "Text/Url.h"

#include <algorithm>
#include <memory>
#include <uriparser/Uri.h>

namespace {

std::optional<std::string> textOfRange(const UriTextRangeA& range) {
    if (!range.first) return std::nullopt;
    return std::string(range.first, range.afterLast);
}

bool isPort(const std::string& port) {
    if (port.size() > 5 || !std::all_of(port.begin(), port.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    return port.empty() || std::stoi(port) <= 65535;
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) return std::nullopt;
    UriUriA uri;
    if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) != URI_SUCCESS) return std::nullopt;
    const std::unique_ptr<UriUriA, void (*)(UriUriA*)> owner(&uri, uriFreeUriMembersA);

    Url url;
    url.scheme = textOfRange(uri.scheme);
    url.userInfo = textOfRange(uri.userInfo);
    url.host = textOfRange(uri.hostText);
    if (url.host && (uri.hostData.ip6 || uri.hostData.ipFuture.first)) url.host = "[" + *url.host + "]";
    url.port = textOfRange(uri.portText);
    url.query = textOfRange(uri.query);
    url.fragment = textOfRange(uri.fragment);
    if (url.port && !isPort(*url.port)) return std::nullopt;

    const bool hasAuthority = url.host.has_value();
    for (const UriPathSegmentA* segment = uri.pathHead; segment; segment = segment->next) {
        if (segment != uri.pathHead || hasAuthority || uri.absolutePath) url.path += '/';
        url.path.append(segment->text.first, segment->text.afterLast);
    }
    if (uri.absolutePath && !uri.pathHead) url.path = "/";
    return url;
}

std::string Url::text() const {
    std::string result;
    if (scheme) result += *scheme + ":";
    if (host) {
        result += "//";
        if (userInfo) result += *userInfo + "@";
        result += *host;
        if (port) result += ":" + *port;
    }
    result += path;
    if (query) result += "?" + *query;
    if (fragment) result += "#" + *fragment;
    return result;
}

Url Url::appending(std::string_view pathComponent) const {
    Url longer = *this;
    if (!longer.path.ends_with('/')) longer.path += '/';
    longer.path += pathComponent;
    return longer;
}
