#include "StateKit/JsonWriter.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace {

/// Writes one of everything.
void writeAll(JsonWriter& writer) {
    writer.startObject();
    writer.constantKey("list");
    writer.startArray();
    writer.null();
    writer.boolean(true);
    writer.integer(std::numeric_limits<std::int64_t>::min());
    writer.unsignedInteger(std::numeric_limits<std::uint64_t>::max());
    writer.number(0.5);
    writer.text("a\n\x1B");
    writer.endArray();
    writer.key("k\x1F\"");
    writer.startObject();
    writer.endObject();
    writer.endObject();
}

TEST(JsonWriterTest, TheCompactFormIsOneLine) {
    const auto writer = JsonWriter::compact();
    writeAll(*writer);
    EXPECT_EQ(writer->written(),
              R"({"list":[null,true,-9223372036854775808,18446744073709551615,0.5,"a\u000A\u001B"],"k\u001F\"":{}})");
}

TEST(JsonWriterTest, ThePrettyFormHasALineForEachValue) {
    const auto writer = JsonWriter::pretty();
    writeAll(*writer);
    EXPECT_EQ(writer->written(), R"({
  "list": [
    null,
    true,
    -9223372036854775808,
    18446744073709551615,
    0.5,
    "a\u000A\u001B"
  ],
  "k\u001F\"": {}
})");
}

TEST(JsonWriterTest, WhatHasNoFormIsRefused) {
    const auto failure = [](auto&& write) -> std::string {
        const auto writer = JsonWriter::compact();
        writer->startObject();
        try {
            write(*writer);
            return "none";
        } catch (const JsonError& error) {
            return error.what();
        }
    };
    EXPECT_EQ(failure([](JsonWriter& writer) { writer.key("\xFF"); }), "The key is not valid UTF-8.");
    EXPECT_EQ(failure([](JsonWriter& writer) {
                  writer.key("a");
                  writer.text("a\xC3");
              }),
              "The text is not valid UTF-8.");
    EXPECT_EQ(failure([](JsonWriter& writer) {
                  writer.key("a");
                  writer.number(std::nan(""));
              }),
              "The number is not finite.");
    EXPECT_EQ(failure([](JsonWriter& writer) { writer.key("a"); }), "none");
}

TEST(JsonTextTest, ShowsWhatItsWriterHasWritten) {
    auto writer = JsonWriter::compact();
    writer->text("ä");
    const JsonText text(std::move(writer));
    EXPECT_EQ(text.view(), "\"ä\"");
    EXPECT_EQ(textOf(text.bytes()), text.view());
}

}  // namespace
