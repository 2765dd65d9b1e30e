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

struct UriDeleter {
    void operator()(UriUriA* uri) const { uriFreeUriMembersA(uri); }
};
using UriOwner = std::unique_ptr<UriUriA, UriDeleter>;

bool parseInto(UriUriA& uri, std::string_view text) {
    return uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) == URI_SUCCESS;
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) return std::nullopt;
    UriUriA uri;
    if (!parseInto(uri, text)) return std::nullopt;
    const UriOwner owner(&uri);

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

Url Url::deletingLastPathComponent() const {
    Url folder = *this;
    while (folder.path.ends_with('/')) folder.path.pop_back();
    const std::size_t slash = folder.path.rfind('/');
    const bool isRooted = host || path.starts_with('/');
    folder.path = slash == std::string::npos ? std::string(isRooted ? "/" : "") : folder.path.substr(0, slash + 1);
    folder.query.reset();
    folder.fragment.reset();
    return folder;
}

std::optional<Url> Url::resolving(const Url& reference) const {
    // The library's ranges point into these.
    const std::string baseText = text();
    const std::string referenceText = reference.text();
    UriUriA base, relative, absolute;
    if (!parseInto(base, baseText)) return std::nullopt;
    const UriOwner baseOwner(&base);
    if (!parseInto(relative, referenceText)) return std::nullopt;
    const UriOwner relativeOwner(&relative);
    const bool isResolved = uriAddBaseUriA(&absolute, &relative, &base) == URI_SUCCESS;
    const UriOwner absoluteOwner(&absolute);
    int size = 0;
    if (!isResolved || uriToStringCharsRequiredA(&absolute, &size) != URI_SUCCESS) return std::nullopt;
    std::string result(static_cast<std::size_t>(size) + 1, '\0');
    if (uriToStringA(result.data(), &absolute, size + 1, &size) != URI_SUCCESS) return std::nullopt;
    result.resize(static_cast<std::size_t>(size) - 1);
    return parse(result);
}
