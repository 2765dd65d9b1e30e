#include "VimbleKit/ServerText.h"

#include "Text/Url.h"

#include <string>

Endpoint serverFrom(std::string_view text) {
    const std::string shown = "\"" + std::string(text) + "\"";
    const auto endpoint = Endpoint::parse(text);
    if (!endpoint) throw ServerTextError(shown + " is no server; \"localhost\", a host name or a URL would be one");
    if (const auto url = Url::parse(endpoint->url()); !url || !url->host || url->host->empty())
        throw ServerTextError(shown + " is no server, since it names no host; with a port it takes a whole " +
                              "URL, such as http://localhost:8080 or https://chat.example.org:8443");
    return *endpoint;
}
