#include "StateKit/Json.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

struct Inner {
    std::string name;
    std::optional<double> number;

    static constexpr auto fields = std::tuple{Field{"name", &Inner::name}, Field{"number", &Inner::number}};
    bool operator==(const Inner&) const = default;
};

struct Outer {
    std::int64_t count = 0;
    double number = 0;
    bool isOn = false;
    std::string text;
    std::optional<std::string> note;
    std::vector<Inner> inners;
    SharedMap<std::string, double> map;
    SharedList<int> flags;
    int unstored = 7;

    static constexpr auto fields = std::tuple{
        Field{"count", &Outer::count}, Field{"number", &Outer::number}, Field{"isOn", &Outer::isOn},
        Field{"text", &Outer::text},   Field{"note", &Outer::note},     Field{"inners", &Outer::inners},
        Field{"map", &Outer::map},     Field{"flags", &Outer::flags},   Field{"unstored", &Outer::unstored, false}};
    bool operator==(const Outer&) const = default;
};

template <class Type>
Type decoded(std::string_view text) {
    return Json::decode<Type>(bytesOf(text));
}

template <class Type>
bool isRefused(std::string_view text) {
    try {
        decoded<Type>(text);
        return false;
    } catch (const JsonError&) {
        return true;
    }
}

template <class Type>
std::string encoded(const Type& value) {
    return std::string(Json::encode(value).view());
}

Outer example() {
    return {.count = -5,
            .number = 0.1,
            .isOn = true,
            .text = "a \"quote\" \\ and \n 😀 \x7F",
            .note = {},
            .inners = {{"one", 1.5}, {"two", {}}},
            .map = {{"x", 1}, {"", -2}},
            .flags = {1, 0}};
}

TEST(JsonTest, ARecordComesBackAsItWas) {
    EXPECT_EQ(decoded<Outer>(encoded(example())), example());
    EXPECT_EQ(Json::decode<Outer>(Json::encodePretty(example()).bytes()), example());
}

TEST(JsonTest, ARecordIsAnObjectOfItsStoredFieldsInTheirOrder) {
    EXPECT_EQ(encoded(Inner{"one", 1.5}), R"({"name":"one","number":1.5})");
    EXPECT_EQ(encoded(Outer{}), R"({"count":0,"number":0.0,"isOn":false,"text":"","inners":[],"map":{},"flags":[]})");
}

TEST(JsonTest, AnAbsentOptionalWritesNoKeyAndNullElsewhere) {
    EXPECT_EQ(encoded(Inner{"one", {}}), R"({"name":"one"})");
    EXPECT_EQ(encoded(std::vector<std::optional<int>>{1, {}}), "[1,null]");
    EXPECT_EQ(encoded(std::optional<int>()), "null");
}

TEST(JsonTest, PrettyFormHasLinesAndTwoSpaces) {
    EXPECT_EQ(Json::encodePretty(Inner{"one", 1.5}).view(), "{\n  \"name\": \"one\",\n  \"number\": 1.5\n}");
}

TEST(JsonTest, DoublesOfRandomBitsComeBackExactly) {
    const std::uint64_t seed = 20240117;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 random(seed);
    int finite = 0;
    for (int i = 0; i < 50'000; ++i) {
        const double number = std::bit_cast<double>(random());
        if (!std::isfinite(number)) continue;
        ++finite;
        const double back = decoded<double>(encoded(number));
        ASSERT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(number)) << encoded(number);
        const Date date = decoded<std::vector<Date>>(encoded(std::vector{Date{number}})).front();
        ASSERT_EQ(std::bit_cast<std::uint64_t>(date.sinceReference), std::bit_cast<std::uint64_t>(number));
    }
    EXPECT_GT(finite, 49'000);
}

TEST(JsonTest, DoublesAtTheEdgesComeBackExactly) {
    using Limits = std::numeric_limits<double>;
    for (const double number :
         {0.0, -0.0, Limits::denorm_min(), -Limits::denorm_min(), Limits::min(), Limits::max(), Limits::lowest(),
          Limits::epsilon(), 2.2250738585072011e-308, 9007199254740993.0, 1e22, 1e23, 800000000.123456, 0.1 + 0.2}) {
        const double back = decoded<double>(encoded(number));
        EXPECT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(number)) << encoded(number);
    }
}

TEST(JsonTest, NumbersWithoutAFractionReadAsDoubles) {
    EXPECT_EQ(decoded<double>("5"), 5.0);
    EXPECT_EQ(decoded<double>("-5"), -5.0);
    EXPECT_EQ(decoded<double>("123456789012345678901234567890"), 123456789012345678901234567890.0);
    EXPECT_EQ(decoded<Date>("5").sinceReference, 5.0);
}

template <class Integer>
void expectLimitsComeBack() {
    for (const Integer number : {std::numeric_limits<Integer>::min(), std::numeric_limits<Integer>::max(), Integer(0)})
        EXPECT_EQ(decoded<Integer>(encoded(number)), number);
}

TEST(JsonTest, IntegersComeBackUpToTheirLimits) {
    expectLimitsComeBack<int>();
    expectLimitsComeBack<std::int64_t>();
    expectLimitsComeBack<std::uint8_t>();
    expectLimitsComeBack<std::uint32_t>();
    expectLimitsComeBack<std::uint64_t>();
}

TEST(JsonTest, IntegersOutOfRangeAreRefused) {
    EXPECT_TRUE(isRefused<std::uint8_t>("256"));
    EXPECT_TRUE(isRefused<std::uint8_t>("-1"));
    EXPECT_TRUE(isRefused<int>("2147483648"));
    EXPECT_TRUE(isRefused<std::int64_t>("9223372036854775808"));
    EXPECT_TRUE(isRefused<std::uint64_t>("18446744073709551616"));
    EXPECT_TRUE(isRefused<int>("1.5"));
    EXPECT_TRUE(isRefused<int>("1e2"));
}

TEST(JsonTest, NumbersThatAreNotFiniteHaveNoForm) {
    EXPECT_THROW(encoded(std::nan("")), JsonError);
    EXPECT_THROW(encoded(std::vector{std::numeric_limits<double>::infinity()}), JsonError);
    EXPECT_THROW(encoded(Inner{"", -std::numeric_limits<double>::infinity()}), JsonError);
    EXPECT_THROW(encoded(Date{std::nan("")}), JsonError);
    EXPECT_TRUE(isRefused<double>("1e400"));
    EXPECT_TRUE(isRefused<double>("-1e400"));
    EXPECT_TRUE(isRefused<double>("NaN"));
    EXPECT_TRUE(isRefused<double>("Infinity"));
}

TEST(JsonTest, TextsThatAreNotUtf8HaveNoForm) {
    for (const std::string text : {"\xFF", "a\xC3", "\xED\xA0\x80", "\xC0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_THROW(encoded(text), JsonError);
        SharedMap<std::string, int> map;
        map.set(text, 1);
        EXPECT_THROW(encoded(map), JsonError);
        EXPECT_TRUE(isRefused<std::string>('"' + text + '"'));
        EXPECT_TRUE(isRefused<Inner>("{\"name\":\"\",\"" + text + "\":1}"));
        EXPECT_TRUE(isRefused<Inner>("{\"name\":\"\",\"x\":\"" + text + "\"}"));
    }
}

TEST(JsonTest, EveryCharacterOfATextComesBack) {
    std::string all;
    for (char c = 0; c < 0x7F; ++c) all += c;
    all += "é漢😀\u2028\uFFFF";
    EXPECT_EQ(decoded<std::string>(encoded(all)), all);
    EXPECT_EQ(decoded<std::string>(R"("\u0041\u00e9\uD83D\ude00\/\b\f\n\r\t\"\\")"), "Aé😀/\b\f\n\r\t\"\\");
}

TEST(JsonTest, EveryControlCharacterComesBackAlsoFromALongText) {
    // The writer's vector code handles long texts, sixteen characters at a time.
    for (char c = 0; c < 0x20; ++c) {
        for (std::size_t at = 0; at < 48; ++at) {
            std::string text(48, 'x');
            text[at] = c;
            text[47 - at / 2] = '"';
            const JsonText json = Json::encode(text);
            for (const char written : json.view()) ASSERT_GE(static_cast<unsigned char>(written), 0x20) << int(c);
            ASSERT_EQ(Json::decode<std::string>(json.bytes()), text) << int(c) << " at " << at;

            const SharedMap<std::string, std::string> map{{text, text}};
            const auto back = Json::decode<SharedMap<std::string, std::string>>(Json::encodePretty(map).bytes());
            ASSERT_EQ(back, map) << int(c) << " at " << at;
        }
    }
}

TEST(JsonTest, BrokenEscapesAreRefused) {
    for (const char* text : {R"("\ud800")", R"("\udc00")", R"("\ud800x")", R"("\ud800\n")", R"("\ud800\u0041")",
                             R"("\ud800\ud800")", R"("\u12")", R"("\u12g4")", R"("\x")", R"("\)", R"("\")"}) {
        EXPECT_TRUE(isRefused<std::string>(text)) << text;
        EXPECT_TRUE(isRefused<Inner>(std::string(R"({"name":"","x":)") + text + "}")) << text;
        EXPECT_TRUE(isRefused<Inner>(std::string(R"({"name":"",)") + text + ":1}")) << text;
    }
}

TEST(JsonTest, ControlCharactersInTextsAreRefused) {
    for (char c = 0; c < 0x20; ++c) EXPECT_TRUE(isRefused<std::string>(std::string("\"") + c + '"')) << int(c);
    EXPECT_FALSE(isRefused<std::string>("\"\x7F\""));
}

TEST(JsonTest, BrokenTextsAreRefused) {
    for (const char* text : {"",
                             " ",
                             "{",
                             "}",
                             "[",
                             "]",
                             "{}}",
                             "{{}",
                             "{]",
                             "[}",
                             "{\"name\":\"\",}",
                             "{,\"name\":\"\"}",
                             "{\"name\":\"\" \"x\":1}",
                             "{\"name\" \"\"}",
                             "{\"name\":}",
                             "{\"name\":\"\"",
                             "{\"name\":\"\"]",
                             "{\"name\":\"}",
                             "{name:\"\"}",
                             "{'name':''}",
                             "{\"name\":\"\"} x",
                             "{\"name\":\"\"}{}",
                             "{\"name\":\"\"},",
                             "{\"name\":\"\"}]",
                             "{\"name\"::\"\"}",
                             "{\"name\",\"\"}",
                             "{\"name\":\"\",,\"x\":1}",
                             "{\"name\":\"\";\"x\":1}",
                             "{\"name\":\"\"} // no",
                             "{/**/\"name\":\"\"}",
                             "\xEF\xBB\xBF{\"name\":\"\"}",
                             "{\"name\":\"\",\"number\":1 2}",
                             "{\"name\":\"\",\"number\":01}",
                             "{\"name\":\"\",\"number\":+1}",
                             "{\"name\":\"\",\"number\":.5}",
                             "{\"name\":\"\",\"number\":5.}",
                             "{\"name\":\"\",\"number\":-}",
                             "{\"name\":\"\",\"number\":1e}",
                             "{\"name\":\"\",\"number\":1e+}",
                             "{\"name\":\"\",\"number\":0x1}",
                             "{\"name\":\"\",\"number\":1\"x\":2}",
                             "{\"name\":\"\",\"number\":nul}",
                             "{\"name\":\"\",\"number\":nulll}",
                             "{\"name\":\"\",\"number\":null1}",
                             "{\"name\":\"\"\"\"}",
                             "{\"name\":\"\"1}",
                             "{1:\"\"}",
                             "{null:\"\"}",
                             "{\"name\":\"\",\"x\"}"})
        EXPECT_TRUE(isRefused<Inner>(text)) << text;
    for (const char* text :
         {"[1 2]", "[1,]",     "[,1]", "[1,,2]", "[1",     "[1,",  "1]",      "[1]]",  "[1}",   "[1:2]",  "[1]2",
          "[[1]",  "[1 ,2 3]", "[]1",  "[] []",  "[1,2],", "[01]", "[1.5.5]", "[1-2]", "[--1]", "[1]\x01"})
        EXPECT_TRUE(isRefused<std::vector<double>>(text)) << text;
    EXPECT_TRUE(isRefused<std::vector<double>>(std::string_view("[1]\0", 4)));
    for (const char* text : {"tru", "truee", "true1", "True", "true false", "true,", "1", "\"true\"", "t", "tr ue",
                             "falsey", "fals", "null"})
        EXPECT_TRUE(isRefused<bool>(text)) << text;
    for (const char* text : {"\"a", "a\"", "\"a\" \"b\"", "\"a\"b", "a", "\"a\\\"", "'a'", "\"a\","})
        EXPECT_TRUE(isRefused<std::string>(text)) << text;
    for (const char* text : {"1 2", "1,", "1x", "1]", "--1", "1.", "01", "-01", "1e5e5", "\"1\"", "1 \"", "1}", "1:"}) {
        EXPECT_TRUE(isRefused<double>(text)) << text;
        EXPECT_TRUE(isRefused<int>(text)) << text;
    }
    for (const char* text : {"nul", "nulll", "null null", "null,", "null]", "nullx"})
        EXPECT_TRUE(isRefused<std::optional<int>>(text)) << text;
}

TEST(JsonTest, BrokenValuesBehindUnknownKeysAreRefused) {
    for (const char* value :
         {"tru", "truee", "fals", "nul", "nulll",           "01",       "1.",         "-",     "\"",        "\"\\x\"",
          "[",   "[1 2]", "[1,]", "{",   "{\"a\"}",         "{\"a\":}", "{\"a\":1,}", "{a:1}", "{\"a\" 1}", "[}",
          "{]",  "1 2",   "x",    "",    "{\"\\ud800\":1}", "[tru]",    "1e999"})
        EXPECT_TRUE(isRefused<Inner>(std::string("{\"name\":\"\",\"x\":") + value + "}")) << value;
}

TEST(JsonTest, WhiteSpaceCountsForNothing) {
    EXPECT_EQ(decoded<Inner>(" \t\r\n{ \"name\" : \"a\" , \"number\" : 1 } \n\t"), (Inner{"a", 1}));
    EXPECT_EQ(decoded<std::vector<int>>("[ ]\n"), std::vector<int>{});
    EXPECT_EQ(decoded<double>(" 1 "), 1);
    EXPECT_EQ(decoded<std::string>(" \"a\" "), "a");
    EXPECT_TRUE(decoded<bool>("\ntrue\n"));
    EXPECT_EQ(decoded<std::optional<int>>(" null "), std::nullopt);
}

TEST(JsonTest, UnknownKeysAreIgnoredWhateverTheyHold) {
    EXPECT_EQ(decoded<Inner>(
                  R"({"x":[{"name":"b"},[],"}",1e5,true,null],"name":"a","y":{"name":{}},"":false,"\u0000":null})"),
              (Inner{"a", {}}));
}

TEST(JsonTest, AFieldThatIsNotStoredIsAnUnknownKey) {
    std::string text = encoded(example());
    text.insert(1, R"("unstored":"no number",)");
    EXPECT_EQ(decoded<Outer>(text).unstored, 7);
    EXPECT_EQ(encoded(example()).find("unstored"), std::string::npos);
}

TEST(JsonTest, AMissingKeyIsNamed) {
    try {
        decoded<Inner>(R"({"number":1})");
        FAIL();
    } catch (const JsonError& error) {
        EXPECT_STREQ(error.what(), "The key \"name\" is missing.");
    }
}

TEST(JsonTest, MistypedValuesAreRefused) {
    for (const char* value : {"1", "null", "true", "[]", "{}", "[\"a\"]"})
        EXPECT_TRUE(isRefused<Inner>(std::string("{\"name\":") + value + "}")) << value;
    for (const char* value : {"\"1\"", "true", "[]", "{}"})
        EXPECT_TRUE(isRefused<Inner>(std::string("{\"name\":\"\",\"number\":") + value + "}")) << value;
    for (const char* text : {"[]", "null", "\"\"", "1"}) EXPECT_TRUE(isRefused<Inner>(text)) << text;
    EXPECT_TRUE(isRefused<std::vector<int>>("{}"));
    EXPECT_TRUE((isRefused<SharedMap<std::string, int>>("[]")));
}

TEST(JsonTest, AbsentAndNullBothReadAsNothing) {
    EXPECT_EQ(decoded<Inner>(R"({"name":"a"})").number, std::nullopt);
    EXPECT_EQ(decoded<Inner>(R"({"name":"a","number":null})").number, std::nullopt);
    EXPECT_EQ(decoded<std::optional<Inner>>("null"), std::nullopt);
    EXPECT_EQ((decoded<std::vector<std::optional<int>>>("[null,1]")), (std::vector<std::optional<int>>{{}, 1}));
}

struct Pair {
    Inner inner;
    std::optional<int> standard = 5;

    static constexpr auto fields = std::tuple{Field{"inner", &Pair::inner}, Field{"standard", &Pair::standard}};
    bool operator==(const Pair&) const = default;
};

TEST(JsonTest, AnAbsentOptionalReadsAsNothingAlsoWhereTheRecordStartsWithAValue) {
    EXPECT_EQ(decoded<Pair>(R"({"inner":{"name":""}})").standard, std::nullopt);
}

TEST(JsonTest, OfARepeatedKeyTheLastCountsAndNothingOfTheEarlierIsLeft) {
    EXPECT_EQ(decoded<Inner>(R"({"name":"a","name":"b","number":1,"number":null})"), (Inner{"b", {}}));
    EXPECT_EQ(decoded<Pair>(R"({"inner":{"name":"a","number":1},"inner":{"name":"b"}})").inner, (Inner{"b", {}}));
    EXPECT_EQ((decoded<SharedMap<std::string, int>>(R"({"a":1,"b":2,"a":3})")),
              (SharedMap<std::string, int>{{"a", 3}, {"b", 2}}));
    EXPECT_EQ(
        decoded<Outer>(
            R"({"count":0,"number":0,"isOn":false,"text":"","inners":[{"name":"a"}],"inners":[],"map":{"a":1},"map":{},
                                 "flags":[1],"flags":[]})"),
        Outer{});
}

TEST(JsonTest, AnEscapedKeyIsTheSameKey) {
    EXPECT_EQ(decoded<Inner>(R"({"\u006eame":"a","n\u0075mber":2})"), (Inner{"a", 2}));
}

TEST(JsonTest, AKeyThatOnlyBeginsLikeAFieldIsAnotherKey) {
    for (const char* key :
         {R"(name\"x)", R"(name\u0000)", R"(name\\)", "names", "nam", "", R"(\"name)", "Name", R"(name\u0022)"}) {
        EXPECT_TRUE(isRefused<Inner>(std::string("{\"") + key + "\":\"a\"}")) << key;
        EXPECT_EQ(decoded<Inner>(std::string("{\"name\":\"b\",\"") + key + "\":\"a\"}").name, "b") << key;
    }
}

TEST(JsonTest, WhatIsNestedTooDeeplyIsRefused) {
    const auto nested = [](std::size_t depth) {
        return "{\"name\":\"\",\"x\":" + std::string(depth, '[') + std::string(depth, ']') + "}";
    };
    EXPECT_FALSE(isRefused<Inner>(nested(60)));
    EXPECT_TRUE(isRefused<Inner>(nested(70)));
    EXPECT_TRUE(isRefused<Inner>(nested(1'000'000)));
    EXPECT_TRUE(isRefused<std::vector<int>>(std::string(1'000'000, '[')));
    EXPECT_TRUE(isRefused<Inner>("{\"name\":\"\",\"x\":" + std::string(1'000'000, '[')));
    std::string objects;
    for (int i = 0; i < 100'000; ++i) objects += "{\"a\":";
    EXPECT_TRUE(isRefused<Inner>(objects));
}

TEST(JsonTest, ReadingGoesOnAfterATextThatWasRefused) {
    EXPECT_TRUE(isRefused<Inner>("{\"name\":\"a"));
    EXPECT_EQ(decoded<Inner>(R"({"name":"b"})").name, "b");
    EXPECT_TRUE(isRefused<Inner>(std::string(200'000, '{')));
    EXPECT_EQ(decoded<Inner>(R"({"name":"c"})").name, "c");
}

TEST(JsonTest, LongTextsComeBack) {
    std::vector<Inner> many;
    for (int i = 0; i < 30'000; ++i) many.push_back({"name \"" + std::to_string(i) + "\" 漢", i / 7.0});
    EXPECT_GT(encoded(many).size(), std::size_t(1'000'000));
    EXPECT_EQ(decoded<std::vector<Inner>>(encoded(many)), many);
    const std::string one(3'000'000, '"');
    EXPECT_EQ(decoded<std::string>(encoded(one)), one);
    EXPECT_EQ(decoded<Inner>(R"({"name":"small again"})").name, "small again");
}

TEST(JsonTest, ATextOfEveryLengthAroundTheBlocksOfTheReaderComesBack) {
    for (std::size_t length = 0; length < 300; ++length) {
        const std::string text(length, 'x');
        ASSERT_EQ(decoded<std::string>(encoded(text)), text);
        ASSERT_TRUE(isRefused<std::string>('"' + text));
        ASSERT_TRUE(isRefused<std::string>('"' + text + "\"]"));
        ASSERT_EQ(decoded<double>(std::string(length, ' ') + "5"), 5) << length;
    }
}

TEST(JsonInputTest, KeepsItsRoomForASmallerText) {
    JsonInput input(bytesOf(R"({"name":"a long text"})"));
    const std::string_view small = R"({"name":"b"})";
    input.resize(small.size());
    std::memcpy(input.data(), small.data(), small.size());
    EXPECT_EQ(Json::decode<Inner>(input).name, "b");
}

}  // namespace
