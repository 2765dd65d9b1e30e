#pragma once

#include "Base/Bytes.h"
#include "StateKit/JsonError.h"
#include "StateKit/LargeBuffer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

/// Bytes to be read as JSON, with the spare room behind them that the reader needs.
///
/// Filling one straight from a file spares a copy of the whole text.
class JsonInput {
public:
    static constexpr std::size_t padding = 64;

    JsonInput() = default;
    explicit JsonInput(ByteView bytes) { assign(bytes); }

    /// Makes room for `size` bytes, whose contents are the caller's to write.
    void resize(std::size_t newSize);
    void assign(ByteView bytes);
    char* data() { return storage.data(); }
    std::string_view view() const { return {storage.data(), size}; }
    /// The size of the text with the spare room.
    std::size_t capacity() const { return storage.size(); }

private:
    LargeBuffer storage;
    std::size_t size = 0;
};

/// A value in a JSON text that is being read.
///
/// The text is read only once, from the front to the back: ask a value for one thing, at most after asking
/// `isNull` or `isObject`, and before the next value. All functions throw JsonError where the text is broken
/// or the value is of another type; the library's own errors become one in `readText`.
class JsonReader {
public:
    JsonReader(const JsonReader&) = delete;
    JsonReader& operator=(const JsonReader&) = delete;

    bool isNull();
    bool isObject();

    bool boolean();
    /// @throws JsonError  also for a number outside of these limits
    std::int64_t integer(std::int64_t least, std::int64_t most);
    std::uint64_t unsignedInteger(std::uint64_t most);
    double number();
    void text(std::string& out);
    /// Steps over the value, whatever it is, so that a text is refused also if only such a value is broken.
    void skip();

    /// Calls `visit(JsonReader& element)` for each element of a list.
    template <class Visit>
    void forEachElement(Visit&& visit) {
        using Target = std::remove_reference_t<Visit>;
        readList([](void* context, JsonReader& element) { (*static_cast<Target*>(context))(element); },
                 std::addressof(visit));
    }
    /// Calls `visit(std::string_view key, JsonReader& value)` for each member of an object. A repeated key is
    /// given each time, and the key holds until `visit` returns.
    template <class Visit>
    void forEachMember(Visit&& visit) {
        using Target = std::remove_reference_t<Visit>;
        readObject([](void* context, std::string_view key,
                      JsonReader& value) { (*static_cast<Target*>(context))(key, value); },
                   std::addressof(visit));
    }

    /// A field of a record, as the reader knows it.
    struct Field {
        std::string_view name;
        bool isStored;
        bool isOptional;
        /// Reads the value into this field of the record, or empties the field if `value` is null.
        void (*read)(JsonReader* value, void* record);
    };
    static constexpr std::size_t maxFields = 64;

    /// Reads an object into a record, by the rules of `Json`. @param fields  at most `maxFields`
    void readRecord(std::span<const Field> fields, void* record);

    /// Lets `read` read the one value that is the whole text, into what `out` points to.
    /// @throws JsonError  what was wrong with the text, in words
    using Read = void (*)(JsonReader& value, void* out);
    static void readText(const JsonInput& input, Read read, void* out);
    static void readText(ByteView bytes, Read read, void* out);

    static bool isUtf8(std::string_view text);

protected:
    JsonReader() = default;
    ~JsonReader() = default;

private:
    void readList(void (*visit)(void* context, JsonReader& element), void* context);
    void readObject(void (*visit)(void* context, std::string_view key, JsonReader& value), void* context);
};
