#include "VimbleWire/ServerMessage.h"

#include "VimbleWire/Pack.h"

#include <algorithm>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

Bytes bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }

TEST(GreetingTest, IsTheTextAndTheKey) {
    const PublicKey key = Nacl::keyPair().publicKey;
    const Bytes frame = Greeting::encoded(key);
    EXPECT_EQ(frame.size(), 39u);
    EXPECT_EQ(textOf(ByteView(frame).first(7)), "vimble:");
    EXPECT_TRUE(std::equal(key.begin(), key.end(), frame.begin() + 7));
    EXPECT_EQ(Greeting::decoded(frame), key);
}

TEST(GreetingTest, AnyOtherLengthIsNothing) {
    Bytes frame = Greeting::encoded(Nacl::keyPair().publicKey);
    frame.resize(100);
    for (std::size_t size = 0; size <= frame.size(); ++size)
        EXPECT_EQ(Greeting::decoded(ByteView(frame).first(size)).has_value(), size == 39) << size;
}

TEST(GreetingTest, AnyOtherTextIsNothing) {
    const Bytes frame = Greeting::encoded(Nacl::keyPair().publicKey);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        Bytes altered = frame;
        altered[i] ^= 0x20;  // also the case of a letter
        EXPECT_EQ(Greeting::decoded(altered).has_value(), i >= 7) << i;
    }
    Bytes foreign = frame;
    foreign[0] = 0xFF;
    EXPECT_EQ(Greeting::decoded(foreign), std::nullopt);
}

TEST(ServerMessageTest, IsAKindOfFourBytesAndABody) {
    const Bytes plaintext = bytes("crsp{}");
    const auto message = ServerMessage::decoded(plaintext);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->kind, "crsp");
    EXPECT_EQ(textOf(message->body), "{}");
    EXPECT_EQ(message->body.data(), plaintext.data() + 4);
}

TEST(ServerMessageTest, FourBytesOrFewerAreNothing) {
    for (const char* text : {"", "l", "li", "lis", "list"}) EXPECT_FALSE(ServerMessage::decoded(bytes(text))) << text;
    EXPECT_TRUE(ServerMessage::decoded(bytes("list[")));
}

TEST(ServerMessageTest, AKindThatIsNotUtf8IsNothing) {
    EXPECT_FALSE(ServerMessage::decoded(bytes("\xFFist[]")));
    EXPECT_FALSE(ServerMessage::decoded(bytes("lis\xC3\xA9[]")));  // a character that the cut divides
    EXPECT_EQ(ServerMessage::decoded(bytes("li\xC3\xA9[]"))->kind, "lié");
    EXPECT_EQ(ServerMessage::decoded(bytes("what?"))->kind, "what");
}

TEST(ServerMessageTest, ABodyNeedNotBeUtf8) { EXPECT_EQ(ServerMessage::decoded(bytes("crsp\xFF"))->body.size(), 1u); }

TEST(ServerMessageTest, AListComesBackAsItWas) {
    const std::vector<MetaPerson> people = {{std::string(64, 'a'), true, false}, {std::string(64, 'b'), false, true}};
    const Bytes plaintext = ServerMessage::encodedList(people);
    const auto message = ServerMessage::decoded(plaintext);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->kind, ServerMessage::list);
    EXPECT_EQ(ServerMessage::decodedList(message->body), people);
    EXPECT_EQ(textOf(ServerMessage::encodedList({})), "list[]");
    EXPECT_EQ(textOf(ServerMessage::encodedList({{"ab", true, false}})),
              R"(list[{"publicKey":"ab","isAdmin":true,"isOnline":false}])");
}

TEST(ServerMessageTest, ABodyThatIsNoListIsNothing) {
    for (const char* text :
         {"", "{}", "[", "[{}]", "null", R"([{"publicKey":"ab","isAdmin":true}])",
          R"([{"publicKey":"ab","isAdmin":1,"isOnline":false}])",
          R"([{"publicKey":"ab","isAdmin":true,"isOnline":false},])",
          R"([{"publicKey":"ab","isAdmin":true,"isOnline":false}] x)",
          R"([{"publicKey":"ab","isAdmin":true,"isOnline":false} {"publicKey":"cd","isAdmin":true,"isOnline":false}])"})
        EXPECT_EQ(ServerMessage::decodedList(bytesOf(text)), std::nullopt) << text;
}

TEST(ServerMessageTest, OneWrongEntryRefusesTheWholeList) {
    EXPECT_EQ(ServerMessage::decodedList(
                  bytesOf(R"([{"publicKey":"ab","isAdmin":true,"isOnline":false},{"publicKey":"cd"}])")),
              std::nullopt);
}

TEST(ServerMessageTest, AListIgnoresUnknownKeys) {
    EXPECT_EQ(ServerMessage::decodedList(bytesOf(R"([{"isOnline":true,"since":5,"publicKey":"ab","isAdmin":false}])")),
              (std::vector<MetaPerson>{{"ab", false, true}}));
}

TEST(ServerMessageTest, ATextIsAPlaintextWithEmptyNameAndEmoji) {
    for (const auto kind : {ServerMessage::commandError, ServerMessage::commandResponse}) {
        const Bytes plaintext = ServerMessage::encodedText(kind, "no such \"member\"");
        const auto message = ServerMessage::decoded(plaintext);
        ASSERT_TRUE(message);
        EXPECT_EQ(message->kind, kind);
        EXPECT_EQ(PackPlaintext::decoded(message->body), (PackPlaintext{{}, "", "", "no such \"member\""}));
    }
}

}  // namespace
