#pragma once

#include "Base/Bytes.h"
#include "StateKit/JsonError.h"

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

/// Writes one JSON text, value by value. In an object, each value follows its key.
///
/// A writer whose function has thrown is of no further use. Any thread, but one at a time.
class JsonWriter {
public:
    /// Writes everything on one line.
    static std::unique_ptr<JsonWriter> compact();
    /// Writes over many lines, for files that people may look into.
    static std::unique_ptr<JsonWriter> pretty();

    virtual ~JsonWriter() = default;
    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    virtual void startObject() = 0;
    virtual void endObject() = 0;
    virtual void startArray() = 0;
    virtual void endArray() = 0;
    /// @throws JsonError  for a key that is not UTF-8
    virtual void key(std::string_view key) = 0;
    /// Writes a key that is a constant of the program, and so known to be UTF-8 without control characters.
    virtual void constantKey(std::string_view key) = 0;

    virtual void null() = 0;
    virtual void boolean(bool value) = 0;
    virtual void integer(std::int64_t value) = 0;
    virtual void unsignedInteger(std::uint64_t value) = 0;
    /// @throws JsonError  for a number that is not finite
    virtual void number(double value) = 0;
    /// @throws JsonError  for a text that is not UTF-8
    virtual void text(std::string_view value) = 0;

    /// What has been written, until the next value is.
    virtual std::string_view written() const = 0;

protected:
    JsonWriter() = default;
};

/// The JSON text of a value, in the buffer that it was written into.
class JsonText {
public:
    /// @param writer  must have written a whole value
    explicit JsonText(std::unique_ptr<JsonWriter> writer) : writer(std::move(writer)) {}

    ByteView bytes() const { return bytesOf(view()); }
    std::string_view view() const { return writer->written(); }

private:
    std::unique_ptr<JsonWriter> writer;
};
