#include "StateKit/JsonWriter.h"

#include "StateKit/JsonReader.h"

#include <cmath>
#include <string>

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

namespace {

/// Whether a text has one of the characters U+001A to U+001F. RapidJSON's vector code does not escape them
/// (it compares with 0x19 where it means 0x1F), and readers refuse a text in which they are not escaped.
bool hasUnescapedControl(std::string_view text) {
    unsigned char found = 0;
    // No early exit, so that the compiler can have the processor compare many characters at once.
    for (const char c : text) found |= static_cast<unsigned char>(static_cast<unsigned char>(c - 0x1A) < 6);
    return found != 0;
}

/// The JSON form of a text, written character by character and without RapidJSON.
std::string quoted(std::string_view text) {
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

/// @param Writer  one of RapidJSON's two, which have the same functions but no common base with virtual ones
template <class Writer>
class Output final : public JsonWriter {
public:
    Output() : writer(buffer) {}
    Writer& library() { return writer; }

    void startObject() override { writer.StartObject(); }
    void endObject() override { writer.EndObject(); }
    void startArray() override { writer.StartArray(); }
    void endArray() override { writer.EndArray(); }
    void key(std::string_view key) override {
        if (!JsonReader::isUtf8(key)) throw JsonError("The key is not valid UTF-8.");
        writeValidText(key);
    }
    void constantKey(std::string_view key) override {
        writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
    }

    void null() override { writer.Null(); }
    void boolean(bool value) override { writer.Bool(value); }
    void integer(std::int64_t value) override { writer.Int64(value); }
    void unsignedInteger(std::uint64_t value) override { writer.Uint64(value); }
    void number(double value) override {
        if (!std::isfinite(value)) throw JsonError("The number is not finite.");
        writer.Double(value);
    }
    void text(std::string_view value) override {
        // Check here, as fast as copying the text: the writer's own check goes character by character.
        if (!JsonReader::isUtf8(value)) throw JsonError("The text is not valid UTF-8.");
        writeValidText(value);
    }

    std::string_view written() const override { return {buffer.GetString(), buffer.GetSize()}; }

private:
    /// Writes a text that is known to be UTF-8, as a value or as a key.
    void writeValidText(std::string_view text) {
        if (!hasUnescapedControl(text)) {
            writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
            return;
        }
        const std::string json = quoted(text);
        writer.RawValue(json.data(), json.size(), rapidjson::kStringType);
    }

    rapidjson::StringBuffer buffer;
    Writer writer;
};

}  // namespace

std::unique_ptr<JsonWriter> JsonWriter::compact() {
    return std::make_unique<Output<rapidjson::Writer<rapidjson::StringBuffer>>>();
}

std::unique_ptr<JsonWriter> JsonWriter::pretty() {
    auto output = std::make_unique<Output<rapidjson::PrettyWriter<rapidjson::StringBuffer>>>();
    output->library().SetIndent(' ', 2);
    return output;
}
