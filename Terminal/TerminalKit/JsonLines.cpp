#include "TerminalKit/JsonLines.h"

#include "StateKit/JsonWriter.h"
#include "Text/Text.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <variant>

namespace {

/// Builds the line for one object.
class Object {
public:
    explicit Object(const char* type) : writer(JsonWriter::compact()) {
        writer->startObject();
        text("type", type);
    }

    Object& text(const char* key, std::string_view value) {
        writer->constantKey(key);
        string(value);
        return *this;
    }
    Object& flag(const char* key, bool value) {
        writer->constantKey(key);
        writer->boolean(value);
        return *this;
    }
    Object& when(Date date) {
        writer->constantKey("when");
        const double seconds = date.toUnix();
        // Write whole milliseconds: further digits are noise of the clock.
        writer->number(std::isfinite(seconds) ? std::round(seconds * 1000) / 1000 : 0);
        return *this;
    }
    Object& person(const Person& person) {
        fields(person);
        return *this;
    }
    Object& people(const char* key, const std::vector<Person>& people) {
        writer->constantKey(key);
        writer->startArray();
        for (const Person& person : people) {
            writer->startObject();
            fields(person);
            writer->endObject();
        }
        writer->endArray();
        return *this;
    }

    std::string line() {
        writer->endObject();
        return harmless(writer->written());
    }

private:
    void string(std::string_view value) {
        writer->text(Text::isUtf8(value) ? std::string(value) : Text::escaped(value));
    }

    void fields(const Person& person) {
        text("key", person.publicKey).text("name", person.displayName()).text("emoji", person.displayEmoji());
        flag("isAdmin", person.isAdmin).flag("isOnline", person.isOnline);
    }

    /// Whether a character of two or three bytes controls a terminal or changes the writing direction.
    static bool disturbs(unsigned c) {
        return (c >= 0x80 && c <= 0x9F) || c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x2028 && c <= 0x202E) ||
               (c >= 0x2066 && c <= 0x2069);
    }

    /// Escapes the control characters that the writer leaves: it escapes only those below U+0020. All JSON outside
    /// of strings is printable ASCII, so the whole line can be treated as one text.
    static std::string harmless(std::string_view json) {
        std::string result;
        result.reserve(json.size() + 1);
        const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(json[at]); };
        for (std::size_t at = 0; at < json.size();) {
            const unsigned first = byte(at);
            const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
            unsigned point = first;
            if (length == 2) point = (first & 0x1F) << 6 | (byte(at + 1) & 0x3Fu);
            if (length == 3) point = (first & 0x0F) << 12 | (byte(at + 1) & 0x3Fu) << 6 | (byte(at + 2) & 0x3Fu);
            if (first == 0x7F || (length > 1 && length < 4 && disturbs(point))) {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04x", point);
                result += escape;
            } else {
                result += json.substr(at, length);
            }
            at += length;
        }
        return result;
    }

    std::unique_ptr<JsonWriter> writer;
};

struct EventObject {
    JsonLines::Place place;

    std::string operator()(const Events::Add& e) const { return Object("add").person(e.added).when(e.when).line(); }
    std::string operator()(const Events::Remove& e) const {
        return Object("remove").person(e.removed).when(e.when).line();
    }
    std::string operator()(const Events::Join& e) const { return Object("join").person(e.user).when(e.when).line(); }
    std::string operator()(const Events::Leave& e) const { return Object("leave").person(e.user).when(e.when).line(); }
    std::string operator()(const Events::NameSet& e) const {
        return Object("name").person(e.user).text("before", e.from).when(e.when).line();
    }
    std::string operator()(const Events::EmojiSet& e) const {
        return Object("emoji").person(e.user).text("before", e.from).when(e.when).line();
    }
    std::string operator()(const Events::Message& e) const {
        Object object("message");
        object.flag("room", place == JsonLines::Place::room).text("from", e.user.publicKey);
        object.text("name", e.user.displayName()).text("emoji", e.user.displayEmoji()).text("text", e.message);
        return object.when(e.when).line();
    }
    std::string operator()(const Events::Roster& e) const { return Object("roster").people("people", e.users).line(); }
    std::string operator()(const Events::ConnectFailed& e) const {
        return Object("connectFailed").text("text", e.exp).line();
    }
    std::string operator()(const Events::AuthorizationFailed& e) const {
        return Object("authorizationFailed").text("text", e.exp).line();
    }
    std::string operator()(const Events::CommandFailed& e) const {
        return Object("commandFailed").text("text", e.exp).line();
    }
    std::string operator()(const Events::CommandResponded& e) const {
        return Object("commandResponded").text("text", e.exp).line();
    }
    std::string operator()(const Events::Error& e) const { return Object("error").text("text", e.error).line(); }
    std::string operator()(const Events::Connected&) const { return Object("connected").line(); }
    std::string operator()(const Events::Disconnected&) const { return Object("disconnected").line(); }
};

const char* name(Online online) {
    switch (online) {
        case Online::startup: return "startup";
        case Online::online: return "online";
        case Online::offline: return "offline";
    }
    return "";
}

const char* name(NetworkIO::Direction direction) {
    switch (direction) {
        case NetworkIO::Direction::inbound: return "in";
        case NetworkIO::Direction::outbound: return "out";
    }
    return "";
}

}  // namespace

std::string JsonLines::banner(const std::optional<std::string>& version, std::string_view publicKey,
                              std::string_view server) {
    return Object("banner")
        .text("version", version.value_or("0.0"))
        .text("key", publicKey)
        .text("server", server)
        .line();
}

std::string JsonLines::line(const NetworkIO& traffic) {
    return Object("traffic").text("direction", name(traffic.direction)).text("line", traffic.description).line();
}

std::string JsonLines::line(Online online) { return Object("online").text("state", name(online)).line(); }

std::string JsonLines::line(const Event& event, Place place) { return std::visit(EventObject{place}, event); }

std::string JsonLines::sent(std::string_view to, std::string_view text, Date when) {
    Object object("sent");
    object.flag("room", to.empty());
    if (!to.empty()) object.text("to", to);
    return object.text("text", text).when(when).line();
}

std::string JsonLines::sentCommand(std::string_view command, Date when) {
    return Object("sentCommand").text("command", command).when(when).line();
}

std::string JsonLines::notSent(std::string_view typed, std::string_view reason) {
    return Object("notSent").text("line", typed).text("reason", reason).line();
}
