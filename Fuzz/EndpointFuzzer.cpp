// Reads the addresses of servers. URLs come back unaltered, an address that is shown can be typed, and no server's
// files lie outside the application's folder.

#include "Base/Bytes.h"
#include "Base/Check.h"
#include "StateKit/Disk.h"
#include "Text/Text.h"
#include "Text/Url.h"
#include "VimbleKit/Endpoint.h"

#include <algorithm>

namespace {

void checkUrl(const std::string& text) {
    const auto url = Url::parse(text);
    if (!url) return;
    check(url->text() == text, "the components of a URL make another one");
    check(Url::parse(url->text()) == url, "a URL comes back altered");
    const Url longer = url->appending("relay");
    check(Url::parse(longer.text()) == longer, "a URL with one more component is none, or another");
    check(longer.path.ends_with("/relay"), "the component is not at the end of the path");
    check(longer.scheme == url->scheme && longer.host == url->host && longer.port == url->port,
          "one more component leads to another server");
}

/// Whether a text has only one piece between points: `Endpoint` takes such a text for a bare word, not a host.
bool isBareWord(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < text.size(); ++at)
        if (text[at] != '.' && (at == 0 || text[at - 1] == '.')) ++count;
    return count == 1;
}

void checkFolder(const std::string& nameSpace) {
    static const std::filesystem::path root = "/root/of/all";
    for (const auto& path : {Disk(root, nameSpace).folder(), Disk(root, "app").file<Endpoint>(nameSpace),
                             Disk(root, nameSpace).file<Endpoint>(nameSpace)}) {
        check(path.native().find('\0') == std::string::npos, "a path is cut short");
        check(path.native() == root.native() || path.native().starts_with(root.native() + "/"),
              "a path does not begin with the root");
        // Look at each part: normalising the path would hide "..", which the kernel follows.
        for (const auto& part : path) check(part != ".." && part != ".", "a path leads up");
    }
    check(Disk(root, "app").file<Endpoint>(nameSpace).parent_path() == Disk(root, "app").folder(),
          "a key leads to another folder");
}

void checkEndpoint(const Endpoint& endpoint) {
    checkUrl(endpoint.url());
    checkFolder(endpoint.url());
    check(Endpoint(endpoint.url()) == endpoint, "an address is not settled");

    const std::string shown = endpoint.displayString();
    const auto typed = Endpoint::parse(shown);
    const auto url = Url::parse(endpoint.url());
    const bool isUrl = url.has_value();
    if (shown == endpoint.url()) {
        check(!isUrl || !url->scheme || typed == endpoint, "an address that is shown in full is another when typed");
    } else if (shown == "localhost" && endpoint.url().starts_with("http://")) {
        check(typed == endpoint, "the server on this machine is another when typed");
    } else {
        // A host name of one word is shown, but not accepted when typed, since it might be any word.
        check(url->scheme == "https" && url->host, "an address is shown without what tells it");
        if (!url->host->empty() && !isBareWord(shown))
            check(typed == endpoint, "an address that is shown is another when typed");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(textOf({data, size}));
    checkUrl(text);
    checkFolder(text);
    (void)Endpoint(text).displayString();

    const auto endpoint = Endpoint::parse(text);
    if (!endpoint) return 0;
    check(Url::parse(endpoint->url()).has_value(), "what was typed became something that is no URL");
    checkEndpoint(*endpoint);
    // An address that was typed without a scheme is shown as it was typed.
    const std::string_view trimmed = Text::trimmed(text);
    if (const auto url = Url::parse(trimmed); !url || !url->scheme)
        check(endpoint->displayString() == trimmed, "a short address is shown otherwise than it was typed");
    return 0;
}
