#include "VimbleKit/DomainJson.h"

#include "Text/Url.h"

#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace {

struct StoredEndpoint {
    std::string url;

    static constexpr auto fields = std::tuple{Field{"url", &StoredEndpoint::url}};
};

struct StoredError {
    std::string code;
    std::optional<std::string> explanation;

    static constexpr auto fields =
        std::tuple{Field{"code", &StoredError::code}, Field{"explanation", &StoredError::explanation}};
};

const char* name(Connection connection) {
    switch (connection) {
        case Connection::setup: return "setup";
        case Connection::online: return "online";
        case Connection::offline: return "offline";
    }
    return "";
}

}  // namespace

void JsonForm<Endpoint>::write(JsonWriter& writer, const Endpoint& endpoint) {
    JsonDetail::write(writer, StoredEndpoint{endpoint.url()});
}

void JsonForm<Endpoint>::read(JsonReader& reader, Endpoint& out) {
    StoredEndpoint stored;
    JsonDetail::read(reader, stored);
    if (stored.url.empty() || !Url::parse(stored.url)) throw JsonError("Invalid URL string.");
    out = Endpoint(stored.url);
}

void JsonForm<Connection>::write(JsonWriter& writer, Connection connection) {
    writer.startObject();
    writer.constantKey(name(connection));
    writer.startObject();
    writer.endObject();
    writer.endObject();
}

void JsonForm<Connection>::read(JsonReader& reader, Connection& out) {
    int casesFound = 0;
    bool isNestedObject = false;
    reader.forEachMember([&](std::string_view key, JsonReader& value) {
        for (const Connection connection : {Connection::setup, Connection::online, Connection::offline}) {
            if (key != name(connection)) continue;
            ++casesFound;
            isNestedObject = value.isObject();
            out = connection;
        }
        value.skip();
    });
    if (casesFound != 1) throw JsonError("Invalid number of keys found, expected one.");
    if (!isNestedObject) throw JsonError("The case's value is no object.");
}

void JsonForm<KitError>::write(JsonWriter& writer, const KitError& error) {
    JsonDetail::write(writer, StoredError{KitError::name(error.code()), error.explanation()});
}

void JsonForm<KitError>::read(JsonReader& reader, KitError& out) {
    StoredError stored;
    JsonDetail::read(reader, stored);
    const auto code = KitError::code(stored.code);
    if (!code) throw JsonError("There is no such error code.");
    out = KitError(*code, stored.explanation);
}
