#pragma once

// This header includes two long libraries, so include it in source files only. A header declares a
// value's JSON form by its list of fields, which takes only `Record.h`.

#include "Base/Bytes.h"
#include "StateKit/Date.h"
#include "StateKit/LargeBuffer.h"
#include "StateKit/Record.h"
#include "StateKit/SharedList.h"
#include "StateKit/SharedMap.h"

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <simdjson.h>

/// Why a text was not the JSON form of a value, or why a value has none.
class [[nodiscard]] JsonError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The JSON text of a value, in the buffer that it was written into.
class JsonText {
public:
    ByteView bytes() const { return {reinterpret_cast<const std::uint8_t*>(buffer->GetString()), buffer->GetSize()}; }
    std::string_view view() const { return {buffer->GetString(), buffer->GetSize()}; }
    rapidjson::StringBuffer& stream() { return *buffer; }

private:
    std::unique_ptr<rapidjson::StringBuffer> buffer = std::make_unique<rapidjson::StringBuffer>();
};

/// Bytes to be read as JSON, with the spare room behind them that the reader needs.
///
/// Filling one straight from a file spares a copy of the whole text.
class JsonInput {
public:
    static constexpr std::size_t padding = simdjson::SIMDJSON_PADDING;

    JsonInput() = default;
    explicit JsonInput(ByteView bytes) {
        resize(bytes.size());
        if (!bytes.empty()) std::memcpy(data(), bytes.data(), bytes.size());
    }

    /// Makes room for `size` bytes, whose contents are the caller's to write.
    void resize(std::size_t newSize) {
        if (newSize + padding > storage.size()) storage = LargeBuffer(newSize + padding);
        size = newSize;
        std::memset(storage.data() + size, 0, padding);
    }
    char* data() { return storage.data(); }
    simdjson::padded_string_view view() const {
        return simdjson::padded_string_view(storage.data(), size, storage.size());
    }

private:
    LargeBuffer storage;
    std::size_t size = 0;
};

/// The JSON form of a type that is neither a `Record` nor built in here.
///
/// A specialisation has `template <class Writer> static void write(Writer&, const Type&)` and
/// `template <class Source> static void read(Source&, Type&)`, which throws on anything but this form.
template <class Type>
struct JsonForm;

namespace JsonDetail {

template <class Type>
inline constexpr bool isList = false;
template <class Type>
inline constexpr bool isList<std::vector<Type>> = true;
template <class Type>
inline constexpr bool isList<SharedList<Type>> = true;
template <class Type>
inline constexpr bool isMap = false;
template <class Type>
inline constexpr bool isMap<SharedMap<std::string, Type>> = true;

/// The memory that reading takes is kept for the next text if the text has at most this many bytes.
inline constexpr std::size_t smallText = 64 * 1024;

/// A skipped value that is nested deeper than this is refused. Source: more than any form that is read.
inline constexpr int maxSkippedDepth = 64;

// ---- writing

/// Whether a text has one of the characters U+001A to U+001F. RapidJSON's vector code does not escape them
/// (it compares with 0x19 where it means 0x1F), and readers refuse a text in which they are not escaped.
inline bool hasUnescapedControl(std::string_view text) {
    unsigned char found = 0;
    // No early exit, so that the compiler can have the processor compare many characters at once.
    for (const char c : text) found |= static_cast<unsigned char>(static_cast<unsigned char>(c - 0x1A) < 6);
    return found != 0;
}

/// The JSON form of a text, written character by character and without RapidJSON.
inline std::string quoted(std::string_view text) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += {'\\', c};
        else if (static_cast<unsigned char>(c) < 0x20)
            result += {'\\', 'u', '0', '0', digits[c >> 4], digits[c & 15]};
        else
            result += c;
    }
    return result += '"';
}

/// Writes a text that is known to be UTF-8, as a value or as a key.
template <class Writer>
void writeValidText(Writer& writer, std::string_view text) {
    if (!hasUnescapedControl(text)) {
        writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
        return;
    }
    const std::string json = quoted(text);
    writer.RawValue(json.data(), json.size(), rapidjson::kStringType);
}

template <class Writer>
void writeText(Writer& writer, std::string_view text) {
    // Check here, as fast as copying the text: the writer's own check goes character by character.
    if (!simdjson::validate_utf8(text.data(), text.size())) throw JsonError("The text is not valid UTF-8.");
    writeValidText(writer, text);
}

template <class Writer, class Type>
void write(Writer& writer, const Type& value) {
    if constexpr (std::same_as<Type, bool>) {
        writer.Bool(value);
    } else if constexpr (std::signed_integral<Type>) {
        writer.Int64(value);
    } else if constexpr (std::unsigned_integral<Type>) {
        writer.Uint64(value);
    } else if constexpr (std::same_as<Type, double>) {
        if (!std::isfinite(value)) throw JsonError("The number is not finite.");
        writer.Double(value);
    } else if constexpr (std::same_as<Type, Date>) {
        write(writer, value.sinceReference);
    } else if constexpr (std::convertible_to<const Type&, std::string_view>) {
        writeText(writer, value);
    } else if constexpr (isOptional<Type>) {
        if (value)
            write(writer, *value);
        else
            writer.Null();
    } else if constexpr (isList<Type>) {
        writer.StartArray();
        for (const auto& element : value) write(writer, element);
        writer.EndArray();
    } else if constexpr (isMap<Type>) {
        writer.StartObject();
        for (const auto& [key, element] : value) {
            if (!simdjson::validate_utf8(key.data(), key.size())) throw JsonError("The key is not valid UTF-8.");
            writeValidText(writer, key);
            write(writer, element);
        }
        writer.EndObject();
    } else if constexpr (Record<Type>) {
        writer.StartObject();
        forEachField<Type>([&](const auto& field) {
            if (!field.isStored) return;
            const auto& member = value.*field.member;
            if constexpr (isOptional<std::remove_cvref_t<decltype(member)>>)
                if (!member) return;
            writer.Key(field.name);
            write(writer, member);
        });
        writer.EndObject();
    } else {
        JsonForm<Type>::write(writer, value);
    }
}

// ---- reading

/// Reads a value that no field takes, so that a text is refused also if only such a value is broken.
inline void skip(simdjson::ondemand::value value, int depth = 0) {
    if (depth > maxSkippedDepth) throw JsonError("The text is nested too deeply.");
    switch (simdjson::ondemand::json_type(value.type())) {
        case simdjson::ondemand::json_type::array:
            for (auto element : value.get_array()) skip(element.value(), depth + 1);
            return;
        case simdjson::ondemand::json_type::object:
            for (auto field : value.get_object()) {
                (void)std::string_view(field.unescaped_key());
                skip(field.value(), depth + 1);
            }
            return;
        case simdjson::ondemand::json_type::number: (void)double(value.get_double()); return;
        case simdjson::ondemand::json_type::string: (void)std::string_view(value.get_string()); return;
        case simdjson::ondemand::json_type::boolean: (void)bool(value.get_bool()); return;
        case simdjson::ondemand::json_type::null:
            if (!bool(value.is_null())) throw JsonError("The text has a broken value.");
            return;
    }
}

/// A key of an object, with its escapes resolved.
/// @param room  holds the key if it had escapes
inline std::string_view keyOf(simdjson::ondemand::field& field, std::string& room) {
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
void readText(Source& source, std::string& out) {
    std::string_view token = source.raw_json_token();
    while (!token.empty() && static_cast<unsigned char>(token.back()) <= ' ') token.remove_suffix(1);
    const bool isPlain = token.size() >= 2 && token.front() == '"' && token.back() == '"' &&
                         std::memchr(token.data(), '\\', token.size()) == nullptr;
    if (!isPlain) {
        out = std::string_view(source.get_string());
        return;
    }
    // This only steps over the string: the reader has checked that it ends and has no control characters.
    (void)simdjson::ondemand::raw_json_string(source.get_raw_json_string());
    out = token.substr(1, token.size() - 2);
}

template <class Source, class Type>
void read(Source& source, Type& out);

template <class Source, class Type>
void readRecord(Source& source, Type& out) {
    constexpr std::size_t count = std::tuple_size_v<std::remove_cvref_t<decltype(Type::fields)>>;
    bool seen[count] = {};
    simdjson::ondemand::object object = source.get_object();
    for (auto fieldResult : object) {
        simdjson::ondemand::field jsonField;
        if (const auto error = std::move(fieldResult).get(jsonField)) throw simdjson::simdjson_error(error);
        std::string room;
        const std::string_view key = keyOf(jsonField, room);
        bool isKnown = false;
        std::size_t index = 0;
        forEachField<Type>([&](const auto& field) {
            const std::size_t at = index++;
            if (isKnown || !field.isStored || key != field.name) return;
            isKnown = true;
            auto& member = out.*field.member;
            // The last of repeated keys counts, so clear what an earlier one has left.
            if (seen[at]) member = {};
            simdjson::ondemand::value value = jsonField.value();
            read(value, member);
            seen[at] = true;
        });
        if (!isKnown) skip(jsonField.value());
    }
    std::size_t index = 0;
    forEachField<Type>([&](const auto& field) {
        using Member = std::remove_cvref_t<decltype(out.*field.member)>;
        if (seen[index++] || !field.isStored) return;
        if constexpr (isOptional<Member>)
            (out.*field.member).reset();
        else
            throw JsonError(std::string("The key \"") + field.name + "\" is missing.");
    });
}

template <class Source, class Type>
void read(Source& source, Type& out) {
    if constexpr (std::same_as<Type, bool>) {
        out = bool(source.get_bool());
    } else if constexpr (std::integral<Type>) {
        using Widest = std::conditional_t<std::unsigned_integral<Type>, std::uint64_t, std::int64_t>;
        Widest number;
        if constexpr (std::unsigned_integral<Type>)
            number = std::uint64_t(source.get_uint64());
        else
            number = std::int64_t(source.get_int64());
        if (!std::in_range<Type>(number)) throw JsonError("The number is out of range.");
        out = static_cast<Type>(number);
    } else if constexpr (std::same_as<Type, double>) {
        out = double(source.get_double());
    } else if constexpr (std::same_as<Type, Date>) {
        out.sinceReference = double(source.get_double());
    } else if constexpr (std::same_as<Type, std::string>) {
        readText(source, out);
    } else if constexpr (isOptional<Type>) {
        if (bool(source.is_null()))
            out.reset();
        else
            read(source, out.emplace());
    } else if constexpr (isList<Type>) {
        out = Type();
        for (auto element : source.get_array()) {
            simdjson::ondemand::value value = element.value();
            typename Type::value_type item{};
            read(value, item);
            out.push_back(std::move(item));
        }
    } else if constexpr (isMap<Type>) {
        out = Type();
        for (auto field : source.get_object()) {
            const std::string key{std::string_view(field.unescaped_key())};
            simdjson::ondemand::value value = field.value();
            std::remove_cvref_t<decltype(*out.find(key))> item{};
            read(value, item);
            out.set(key, std::move(item));
        }
    } else if constexpr (Record<Type>) {
        readRecord(source, out);
    } else {
        JsonForm<Type>::read(source, out);
    }
}

inline void checkEnd(simdjson::ondemand::document& document) {
    if (document.current_location().error() != simdjson::OUT_OF_BOUNDS)
        throw JsonError("There is something behind the value.");
}

inline bool isListOrObject(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    return begin != std::string_view::npos && (text[begin] == '{' || text[begin] == '[');
}

/// Reads a text that is one number, text, boolean or null, as the only element of a list.
template <class Type>
Type decodeAlone(std::string_view text) {
    JsonInput input;
    input.resize(text.size() + 2);
    input.data()[0] = '[';
    std::copy(text.begin(), text.end(), input.data() + 1);
    input.data()[text.size() + 1] = ']';
    try {
        simdjson::ondemand::parser parser;
        simdjson::ondemand::document document = parser.iterate(input.view());
        std::optional<Type> only;
        for (auto element : document.get_array()) {
            if (only) throw JsonError("There is something behind the value.");
            simdjson::ondemand::value value = element.value();
            read(value, only.emplace());
        }
        checkEnd(document);
        if (!only) throw JsonError("The text is empty.");
        return std::move(*only);
    } catch (const simdjson::simdjson_error& error) {
        throw JsonError(error.what());
    }
}

}  // namespace JsonDetail

/// Writes and reads JSON by a type's list of fields.
///
/// Reading: every field is required unless it is optional (absent or null reads as nothing), unknown
/// keys are ignored, the last of repeated keys counts. The text must be valid UTF-8 and contain nothing
/// but the value. Doubles are exact both ways. Any thread.
namespace Json {

/// @throws JsonError  for text that is not UTF-8, and numbers that are not finite
template <class Type>
[[nodiscard]] JsonText encode(const Type& value) {
    JsonText text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text.stream());
    JsonDetail::write(writer, value);
    return text;
}

/// The same over many lines, for files that people may look into.
template <class Type>
[[nodiscard]] JsonText encodePretty(const Type& value) {
    JsonText text;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(text.stream());
    writer.SetIndent(' ', 2);
    JsonDetail::write(writer, value);
    return text;
}

/// @throws JsonError  what was wrong with the text, in words
template <class Type>
[[nodiscard]] Type decode(const JsonInput& input) {
    // A text that is only a number, text, boolean or null is read inside a list: when it stands alone, the
    // reader is lax with what follows it ("falsey", "null ").
    if (!JsonDetail::isListOrObject(input.view())) return JsonDetail::decodeAlone<Type>(input.view());
    // Small texts come by the thousand and share a parser. A parser keeps a few times the size of the
    // longest text that it has read, so a long text gets a parser that is destroyed after it.
    thread_local simdjson::ondemand::parser shared;
    std::optional<simdjson::ondemand::parser> own;
    simdjson::ondemand::parser& parser = input.view().size() > JsonDetail::smallText ? own.emplace() : shared;
    try {
        simdjson::ondemand::document document = parser.iterate(input.view());
        Type value{};
        JsonDetail::read(document, value);
        JsonDetail::checkEnd(document);
        return value;
    } catch (const simdjson::simdjson_error& error) {
        throw JsonError(error.what());
    }
}

template <class Type>
[[nodiscard]] Type decode(ByteView bytes) {
    if (bytes.size() > JsonDetail::smallText) return decode<Type>(JsonInput(bytes));
    thread_local JsonInput input;
    input.resize(bytes.size());
    if (!bytes.empty()) std::memcpy(input.data(), bytes.data(), bytes.size());
    return decode<Type>(input);
}

}  // namespace Json
