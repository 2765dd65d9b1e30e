#include "TerminalKit/JsonLines.h"

#include "StateKit/Json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::HasSubstr;
using testing::Not;

namespace {

const std::string key(64, 'a');
const Person ann{key, "Ann", "🙂", true, true};
constexpr Date when{800000000.12345};

std::string json(const Event& event, JsonLines::Place place = JsonLines::Place::room) {
    return JsonLines::line(event, place);
}

/// Reads the key "text" back, as a bot would.
struct TextOnly {
    std::string text;
    static constexpr auto fields = std::tuple{Field{"text", &TextOnly::text}};
};

std::string readBack(const std::string& json) {
    return Json::decode<TextOnly>(ByteView(reinterpret_cast<const std::uint8_t*>(json.data()), json.size())).text;
}

}  // namespace

TEST(JsonLinesTest, TheBannerSaysWhoAndWhere) {
    EXPECT_EQ(JsonLines::banner("1.2", key, "https://chat.example.org"),
              R"({"type":"banner","version":"1.2","key":")" + key + R"(","server":"https://chat.example.org"})");
    EXPECT_THAT(JsonLines::banner({}, key, ""), HasSubstr(R"("version":"0.0")"));
}

TEST(JsonLinesTest, TrafficAndSessionHaveLines) {
    EXPECT_EQ(JsonLines::line(NetworkIO{NetworkIO::Direction::inbound, "list of 2 people"}),
              R"({"type":"traffic","direction":"in","line":"list of 2 people"})");
    EXPECT_EQ(JsonLines::line(NetworkIO{NetworkIO::Direction::outbound, "scmd: list"}),
              R"({"type":"traffic","direction":"out","line":"scmd: list"})");
    EXPECT_EQ(JsonLines::line(Online::startup), R"({"type":"online","state":"startup"})");
    EXPECT_EQ(JsonLines::line(Online::online), R"({"type":"online","state":"online"})");
    EXPECT_EQ(JsonLines::line(Online::offline), R"({"type":"online","state":"offline"})");
}

TEST(JsonLinesTest, AMessageTellsTheRoomFromAPersonAndCarriesTheKey) {
    const Events::Message message{ann, "hi", when};
    EXPECT_EQ(json(message), R"({"type":"message","room":true,"from":")" + key +
                                 R"(","name":"Ann","emoji":"🙂","text":"hi","when":1778307200.123})");
    EXPECT_THAT(json(message, JsonLines::Place::direct), HasSubstr(R"("room":false)"));
}

TEST(JsonLinesTest, EveryEventHasALine) {
    const std::string person = R"("key":")" + key + R"(","name":"Ann","emoji":"🙂","isAdmin":true,"isOnline":true)";
    const std::string time = R"("when":1778307200.123})";
    EXPECT_EQ(json(Events::Add{ann, ann, when}), R"({"type":"add",)" + person + "," + time);
    EXPECT_EQ(json(Events::Remove{ann, ann, when}), R"({"type":"remove",)" + person + "," + time);
    EXPECT_EQ(json(Events::Join{ann, when}), R"({"type":"join",)" + person + "," + time);
    EXPECT_EQ(json(Events::Leave{ann, when}), R"({"type":"leave",)" + person + "," + time);
    EXPECT_EQ(json(Events::NameSet{ann, "old", when}), R"({"type":"name",)" + person + R"(,"before":"old",)" + time);
    EXPECT_EQ(json(Events::EmojiSet{ann, "😐", when}), R"({"type":"emoji",)" + person + R"(,"before":"😐",)" + time);
    EXPECT_EQ(json(Events::Roster{{ann}}), R"({"type":"roster","people":[{)" + person + "}]}");
    EXPECT_EQ(json(Events::Roster{}), R"({"type":"roster","people":[]})");
    EXPECT_EQ(json(Events::ConnectFailed{"x"}), R"({"type":"connectFailed","text":"x"})");
    EXPECT_EQ(json(Events::AuthorizationFailed{"x"}), R"({"type":"authorizationFailed","text":"x"})");
    EXPECT_EQ(json(Events::CommandFailed{"x"}), R"({"type":"commandFailed","text":"x"})");
    EXPECT_EQ(json(Events::CommandResponded{"x"}), R"({"type":"commandResponded","text":"x"})");
    EXPECT_EQ(json(Events::Error{"x"}), R"({"type":"error","text":"x"})");
    EXPECT_EQ(json(Events::Connected{}), R"({"type":"connected"})");
    EXPECT_EQ(json(Events::Disconnected{}), R"({"type":"disconnected"})");
}

TEST(JsonLinesTest, WhatTheUserSaysHasLinesOfItsOwn) {
    EXPECT_EQ(JsonLines::sent("", "hi", when), R"({"type":"sent","room":true,"text":"hi","when":1778307200.123})");
    EXPECT_EQ(JsonLines::sent(key, "hi", when),
              R"({"type":"sent","room":false,"to":")" + key + R"(","text":"hi","when":1778307200.123})");
    EXPECT_EQ(JsonLines::sentCommand("who", when), R"({"type":"sentCommand","command":"who","when":1778307200.123})");
    EXPECT_EQ(JsonLines::notSent("@x", "why"), R"({"type":"notSent","line":"@x","reason":"why"})");
}

TEST(JsonLinesTest, WhatSteersATerminalIsEscapedAndReadsBackAsItWas) {
    const std::string evil =
        "\x1b[2J\xc2\x9b"
        "2J\x7f\u202egnp\u2066\u061c\u200f\u2028\n\t\"\\ é € 👩‍👩‍👧 Ā";
    const std::string made = json(Events::CommandResponded{evil});
    for (const char* raw : {"\x1b", "\xc2\x9b", "\x7f", "\u202e", "\u2066", "\u061c", "\u200f", "\u2028", "\n", "\t"})
        EXPECT_THAT(made, Not(HasSubstr(raw)));
    EXPECT_THAT(made, HasSubstr("é € 👩‍👩‍👧 Ā"));
    EXPECT_EQ(readBack(made), evil);
}

TEST(JsonLinesTest, BytesThatAreNotUtf8BecomeWords) {
    EXPECT_EQ(readBack(json(Events::ConnectFailed{"a\xff"})), "a\\xff");
}
