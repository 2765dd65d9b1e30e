#include "StateKit/JsonReader.h"

#include "Base/Check.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include <simdjson.h>

namespace {

namespace ondemand = simdjson::ondemand;
using ondemand::json_type;

/// The memory that reading takes is kept for the next text if the text has at most this many bytes.
constexpr std::size_t smallText = 64 * 1024;

/// A skipped value that is nested deeper than this is refused. Source: more than any form that is read.
constexpr int maxSkippedDepth = 64;

/// All readers are of this class: a value inside of a text, or the whole text. The library looks at the end of
/// the text only where it is told that a list or object is the whole of it.
struct Value final : JsonReader {
    explicit Value(const ondemand::value& inner) : inner(inner) {}
    explicit Value(ondemand::document& whole) : whole(&whole) {}

    static Value& of(JsonReader& reader) { return static_cast<Value&>(reader); }

    /// Calls `visit` with what this is.
    template <class Visit>
    auto visit(Visit&& visit) {
        return whole ? visit(*whole) : visit(inner);
    }

    ondemand::value inner;
    ondemand::document* whole = nullptr;
};

template <class Source>
void skipValue(Source&& source, int depth = 0) {
    if (depth > maxSkippedDepth) throw JsonError("The text is nested too deeply.");
    switch (json_type(source.type())) {
        case json_type::array:
            for (auto element : source.get_array()) skipValue(ondemand::value(element.value()), depth + 1);
            return;
        case json_type::object:
            for (auto field : source.get_object()) {
                (void)std::string_view(field.unescaped_key());
                skipValue(ondemand::value(field.value()), depth + 1);
            }
            return;
        case json_type::number: (void)double(source.get_double()); return;
        case json_type::string: (void)std::string_view(source.get_string()); return;
        case json_type::boolean: (void)bool(source.get_bool()); return;
        case json_type::null:
            if (!bool(source.is_null())) throw JsonError("The text has a broken value.");
            return;
    }
}

/// A key of an object, with its escapes resolved.
/// @param room  holds the key if it had escapes
std::string_view keyOf(ondemand::field& field, std::string& room) {
    // `strchr` finds a quote, since the reader has checked that the string ends. Keys hardly ever have
    // escapes, and comparing them in the input, without a copy, is a good part of the speed.
    const char* raw = field.key().raw();
    const std::string_view asItStands(raw, static_cast<std::size_t>(std::strchr(raw, '"') - raw));
    if (asItStands.find('\\') == std::string_view::npos) return asItStands;
    room = std::string_view(field.unescaped_key());
    return room;
}

/// Reads a text. Most have no escapes and are copied straight from the input; the library would copy them
/// once more, into memory whose pages are not there yet.
template <class Source>
void copyText(Source& source, std::string& out) {
    std::string_view token = source.raw_json_token();
    while (!token.empty() && static_cast<unsigned char>(token.back()) <= ' ') token.remove_suffix(1);
    const bool isPlain = token.size() >= 2 && token.front() == '"' && token.back() == '"' &&
                         std::memchr(token.data(), '\\', token.size()) == nullptr;
    if (!isPlain) {
        out = std::string_view(source.get_string());
        return;
    }
    // This only steps over the string: the reader has checked that it ends and has no control characters.
    (void)ondemand::raw_json_string(source.get_raw_json_string());
    out = token.substr(1, token.size() - 2);
}

/// Calls `visit` with each member of an object and its key.
template <class Visit>
void walkObject(Value& reader, Visit&& visit) {
    ondemand::object object = reader.visit([](auto& source) -> ondemand::object { return source.get_object(); });
    for (auto result : object) {
        ondemand::field field;
        if (const auto error = std::move(result).get(field)) throw simdjson::simdjson_error(error);
        std::string room;
        const std::string_view key = keyOf(field, room);
        visit(key, field);
    }
}

simdjson::padded_string_view padded(const JsonInput& input) {
    return simdjson::padded_string_view(input.view(), input.capacity());
}

void checkEnd(ondemand::document& document) {
    if (document.current_location().error() != simdjson::OUT_OF_BOUNDS)
        throw JsonError("There is something behind the value.");
}

bool isListOrObject(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    return begin != std::string_view::npos && (text[begin] == '{' || text[begin] == '[');
}

/// Reads a text that is one number, text, boolean or null, as the only element of a list.
void readAlone(std::string_view text, JsonReader::Read read, void* out) {
    JsonInput input;
    input.resize(text.size() + 2);
    input.data()[0] = '[';
    std::copy(text.begin(), text.end(), input.data() + 1);
    input.data()[text.size() + 1] = ']';
    ondemand::parser parser;
    ondemand::document document = parser.iterate(padded(input));
    bool isRead = false;
    for (auto element : document.get_array()) {
        if (std::exchange(isRead, true)) throw JsonError("There is something behind the value.");
        Value value(element.value());
        read(value, out);
    }
    checkEnd(document);
    if (!isRead) throw JsonError("The text is empty.");
}

/// The parser and buffer that a thread uses for all its small texts, since there are thousands of them.
struct Shared {
    ondemand::parser parser;
    JsonInput input;
    bool isInUse = false;
};
thread_local Shared shared;

/// Reserves `shared` for as long as it lives, unless a text is being read with it already: a value's own JSON form
/// may be read from a text inside of the text.
class Use {
public:
    Use() : isFirst(!std::exchange(shared.isInUse, true)) {}
    ~Use() {
        if (isFirst) shared.isInUse = false;
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    const bool isFirst;
};

void readInput(const JsonInput& input, bool mayShare, JsonReader::Read read, void* out) {
    try {
        // A text that is only a number, text, boolean or null is read inside a list: when it stands alone, the
        // reader is lax with what follows it ("falsey", "null ").
        if (!isListOrObject(input.view())) return readAlone(input.view(), read, out);
        // A parser keeps a few times the size of the longest text that it has read, so a long text gets a parser
        // that is destroyed after it.
        std::optional<ondemand::parser> own;
        ondemand::parser& parser = mayShare && input.view().size() <= smallText ? shared.parser : own.emplace();
        ondemand::document document = parser.iterate(padded(input));
        Value value(document);
        read(value, out);
        checkEnd(document);
    } catch (const simdjson::simdjson_error& error) {
        throw JsonError(error.what());
    }
}

}  // namespace

static_assert(JsonInput::padding >= simdjson::SIMDJSON_PADDING);

void JsonInput::resize(std::size_t newSize) {
    if (newSize + padding > storage.size()) storage = LargeBuffer(newSize + padding);
    size = newSize;
    std::memset(storage.data() + size, 0, padding);
}

void JsonInput::assign(ByteView bytes) {
    resize(bytes.size());
    if (!bytes.empty()) std::memcpy(data(), bytes.data(), bytes.size());
}

bool JsonReader::isNull() {
    return Value::of(*this).visit([](auto& source) { return bool(source.is_null()); });
}

bool JsonReader::isObject() {
    return Value::of(*this).visit([](auto& source) { return json_type(source.type()) == json_type::object; });
}

bool JsonReader::boolean() {
    return Value::of(*this).visit([](auto& source) { return bool(source.get_bool()); });
}

std::int64_t JsonReader::integer(std::int64_t least, std::int64_t most) {
    const auto number = Value::of(*this).visit([](auto& source) { return std::int64_t(source.get_int64()); });
    if (number < least || number > most) throw JsonError("The number is out of range.");
    return number;
}

std::uint64_t JsonReader::unsignedInteger(std::uint64_t most) {
    const auto number = Value::of(*this).visit([](auto& source) { return std::uint64_t(source.get_uint64()); });
    if (number > most) throw JsonError("The number is out of range.");
    return number;
}

double JsonReader::number() {
    return Value::of(*this).visit([](auto& source) { return double(source.get_double()); });
}

void JsonReader::text(std::string& out) {
    Value::of(*this).visit([&](auto& source) { copyText(source, out); });
}

void JsonReader::skip() {
    Value::of(*this).visit([](auto& source) { skipValue(source); });
}

void JsonReader::readList(void (*visit)(void* context, JsonReader& element), void* context) {
    ondemand::array array = Value::of(*this).visit([](auto& source) -> ondemand::array { return source.get_array(); });
    for (auto element : array) {
        Value value(element.value());
        visit(context, value);
    }
}

void JsonReader::readObject(void (*visit)(void* context, std::string_view key, JsonReader& value), void* context) {
    walkObject(Value::of(*this), [&](std::string_view key, ondemand::field& field) {
        Value value(field.value());
        visit(context, key, value);
    });
}

void JsonReader::readRecord(std::span<const Field> fields, void* record) {
    check(fields.size() <= maxFields, "A record has more fields than the reader can tell apart.");
    std::uint64_t seen = 0;
    walkObject(Value::of(*this), [&](std::string_view key, ondemand::field& jsonField) {
        Value value(jsonField.value());
        for (std::size_t at = 0; at < fields.size(); ++at) {
            const Field& field = fields[at];
            if (!field.isStored || key != field.name) continue;
            const std::uint64_t bit = std::uint64_t(1) << at;
            // The last of repeated keys counts, so clear what an earlier one has left.
            if (seen & bit) field.read(nullptr, record);
            field.read(&value, record);
            seen |= bit;
            return;
        }
        value.skip();
    });
    for (std::size_t at = 0; at < fields.size(); ++at) {
        const Field& field = fields[at];
        if (seen >> at & 1 || !field.isStored) continue;
        if (!field.isOptional) throw JsonError("The key \"" + std::string(field.name) + "\" is missing.");
        field.read(nullptr, record);
    }
}

void JsonReader::readText(const JsonInput& input, Read read, void* out) {
    const Use use;
    readInput(input, use.isFirst, read, out);
}

void JsonReader::readText(ByteView bytes, Read read, void* out) {
    const Use use;
    if (!use.isFirst || bytes.size() > smallText) return readInput(JsonInput(bytes), use.isFirst, read, out);
    shared.input.assign(bytes);
    readInput(shared.input, true, read, out);
}

bool JsonReader::isUtf8(std::string_view text) { return simdjson::validate_utf8(text.data(), text.size()); }
