#include "StateKit/Json.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::Pair;

namespace {

void read(std::string_view text, JsonReader::Read read, void* out) { JsonReader::readText(bytesOf(text), read, out); }

/// The keys of an object with the numbers under them.
struct Members {
    std::vector<std::pair<std::string, double>> all;

    static void read(JsonReader& reader, void* out) {
        reader.forEachMember([&](std::string_view key, JsonReader& value) {
            static_cast<Members*>(out)->all.emplace_back(key, value.number());
        });
    }
};

TEST(JsonReaderTest, MembersComeInTheOrderOfTheTextWithEachRepeatedKey) {
    Members members;
    read(R"({"b":1,"\u0061":2,"b":3})", Members::read, &members);
    EXPECT_THAT(members.all, ElementsAre(Pair("b", 1), Pair("a", 2), Pair("b", 3)));
}

TEST(JsonReaderTest, AnElementThatIsNotReadIsSteppedOver) {
    std::vector<bool> areObjects;
    read(R"([1,{"a":[]},"x",{}])",
         [](JsonReader& reader, void* out) {
             reader.forEachElement(
                 [&](JsonReader& element) { static_cast<std::vector<bool>*>(out)->push_back(element.isObject()); });
         },
         &areObjects);
    EXPECT_THAT(areObjects, ElementsAre(false, true, false, true));
}

TEST(JsonReaderTest, NumbersBeyondTheGivenLimitsAreRefused) {
    const auto isRefused = [](std::string_view text) {
        std::int64_t number = 0;
        try {
            read(
                text, [](JsonReader& reader, void* out) { *static_cast<std::int64_t*>(out) = reader.integer(-5, 7); },
                &number);
            return false;
        } catch (const JsonError& error) {
            return std::string_view(error.what()) == "The number is out of range.";
        }
    };
    EXPECT_FALSE(isRefused("-5"));
    EXPECT_TRUE(isRefused("-6"));
    EXPECT_FALSE(isRefused("7"));
    EXPECT_TRUE(isRefused("8"));
}

TEST(JsonReaderTest, TheWholeTextMayBeSteppedOverUnlessItIsBroken) {
    const auto skip = [](JsonReader& reader, void*) { reader.skip(); };
    EXPECT_NO_THROW(read(R"({"a":[1,{"b":null}]})", skip, nullptr));
    EXPECT_NO_THROW(read("[]", skip, nullptr));
    for (const char* text : {R"({"a":[1,{"b":nul}]})", "[1 2]", "{\"a\":1", "[1", "[]]", "[}"})
        EXPECT_THROW(read(text, skip, nullptr), JsonError) << text;
}

/// A list of numbers that stands in JSON as a text, in which it is written as JSON.
struct Wrapped {
    std::vector<int> numbers;

    bool operator==(const Wrapped&) const = default;
};

}  // namespace

template <>
struct JsonForm<Wrapped> {
    static void write(JsonWriter& writer, const Wrapped& wrapped) { writer.text(Json::encode(wrapped.numbers).view()); }
    static void read(JsonReader& reader, Wrapped& out) {
        std::string text;
        reader.text(text);
        out.numbers = Json::decode<std::vector<int>>(bytesOf(text));
    }
};

namespace {

TEST(JsonReaderTest, ATextWithinATextIsReadWithoutHarmToTheOuterOne) {
    const std::vector<Wrapped> all = {{{1, 2, 3}}, {{}}, {std::vector<int>(1000, 7)}, {{4}}};
    EXPECT_EQ(Json::decode<std::vector<Wrapped>>(Json::encode(all).bytes()), all);
    EXPECT_THROW(static_cast<void>(Json::decode<std::vector<Wrapped>>(bytesOf(R"(["[1]","[1"])"))), JsonError);
    EXPECT_EQ(Json::decode<std::vector<Wrapped>>(Json::encode(all).bytes()), all);
}

TEST(JsonReaderTest, TheLastOfAsManyFieldsAsThereMayBeIsTold) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < JsonReader::maxFields; ++i) names.push_back("field" + std::to_string(i));
    int calls = 0;
    std::vector<JsonReader::Field> fields;
    for (const std::string& name : names)
        fields.push_back({name, true, false, [](JsonReader* value, void* record) {
                              ++*static_cast<int*>(record);
                              if (value) value->skip();
                          }});
    struct Target {
        std::vector<JsonReader::Field>& fields;
        int& calls;
    } target{fields, calls};
    const auto readRecord = [](JsonReader& reader, void* out) {
        const auto* target = static_cast<Target*>(out);
        reader.readRecord(target->fields, &target->calls);
    };
    std::string text = "{";
    for (const std::string& name : names) text += (text.size() > 1 ? ",\"" : "\"") + name + "\":1";
    read(text + "}", readRecord, &target);
    EXPECT_EQ(calls, 64);
    const std::size_t last = text.rfind(',');
    try {
        read(text.substr(0, last) + "}", readRecord, &target);
        FAIL();
    } catch (const JsonError& error) {
        EXPECT_STREQ(error.what(), "The key \"field63\" is missing.");
    }
    calls = 0;
    read(text + ",\"field63\":2}", readRecord, &target);
    EXPECT_EQ(calls, 66) << "a repeated key empties the field before it is read again";
}

TEST(JsonReaderTest, Utf8IsToldFromOtherBytes) {
    EXPECT_TRUE(JsonReader::isUtf8(""));
    EXPECT_TRUE(JsonReader::isUtf8("aä漢😀"));
    for (const char* text : {"\xFF", "a\xC3", "\xED\xA0\x80", "\xC0\x80", "\xF4\x90\x80\x80"})
        EXPECT_FALSE(JsonReader::isUtf8(text));
}

}  // namespace
