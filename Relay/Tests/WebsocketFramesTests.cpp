#include "RelayShell/WebsocketFrames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace {

using testing::ElementsAre;

/// Records what was read, and stops after a given number.
class Recorder final : public WebsocketReader::Sink {
public:
    bool onMessage(ByteView message) override { return record("message " + std::string(textOf(message))); }
    bool onPing(ByteView payload) override { return record("ping " + std::string(textOf(payload))); }
    bool onPong(ByteView payload) override { return record("pong " + std::string(textOf(payload))); }
    void onClose(std::optional<std::uint16_t> code) override {
        record("close " + (code ? std::to_string(*code) : "none"));
    }

    std::vector<std::string> events;
    std::size_t most = 1000000;

private:
    bool record(std::string event) {
        events.push_back(std::move(event));
        return events.size() < most;
    }
};

/// A frame as a client sends it, masked.
Bytes frame(std::uint8_t first, std::string_view payload) {
    Bytes bytes{first};
    if (payload.size() <= 125) {
        bytes.push_back(static_cast<std::uint8_t>(0x80 | payload.size()));
    } else if (payload.size() <= 0xffff) {
        bytes.insert(bytes.end(),
                     {0xfe, static_cast<std::uint8_t>(payload.size() >> 8), static_cast<std::uint8_t>(payload.size())});
    } else {
        bytes.push_back(0xff);
        for (int shift = 56; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<std::uint8_t>(std::uint64_t{payload.size()} >> shift));
    }
    const std::uint8_t mask[4] = {0x12, 0x34, 0x56, 0x78};
    bytes.insert(bytes.end(), mask, mask + 4);
    for (std::size_t at = 0; at < payload.size(); ++at)
        bytes.push_back(static_cast<std::uint8_t>(payload[at]) ^ mask[at % 4]);
    return bytes;
}

Bytes joined(std::initializer_list<Bytes> frames) {
    Bytes result;
    for (const Bytes& each : frames) result.insert(result.end(), each.begin(), each.end());
    return result;
}

std::optional<std::uint16_t> errorOf(Bytes bytes, std::size_t limit = 1000) {
    WebsocketReader reader(limit);
    Recorder recorder;
    reader.read(bytes, recorder);
    return reader.error();
}

TEST(WebsocketReaderTest, ManyFramesAreReadAtOnceAndAnIncompleteOneIsLeft) {
    WebsocketReader reader(1000);
    Recorder recorder;
    Bytes bytes =
        joined({frame(0x82, "one"), frame(0x89, "p"), frame(0x82, ""), frame(0x8a, "12345678"), frame(0x82, "two")});
    const std::size_t whole = bytes.size() - frame(0x82, "two").size();
    bytes.pop_back();
    EXPECT_EQ(reader.read(bytes, recorder), whole);
    EXPECT_THAT(recorder.events, ElementsAre("message one", "ping p", "message ", "pong 12345678"));
    EXPECT_FALSE(reader.error());
}

TEST(WebsocketReaderTest, TheExampleOfTheStandardIsRead) {
    // RFC 6455, section 5.7: a masked frame with "Hello", here binary.
    WebsocketReader reader(1000);
    Recorder recorder;
    Bytes bytes{0x82, 0x85, 0x37, 0xfa, 0x21, 0x3d, 0x7f, 0x9f, 0x4d, 0x51, 0x58};
    EXPECT_EQ(reader.read(bytes, recorder), bytes.size());
    EXPECT_THAT(recorder.events, ElementsAre("message Hello"));
}

TEST(WebsocketReaderTest, EverySizeIsReadHoweverItIsCut) {
    std::mt19937 random(20260101);
    std::vector<std::string> expected;
    Bytes bytes;
    for (const std::size_t size : {0u, 1u, 7u, 8u, 9u, 124u, 125u, 126u, 127u, 300u, 65535u, 65536u, 70000u}) {
        std::string payload(size, '\0');
        for (char& each : payload) each = static_cast<char>(random());
        expected.push_back("message " + payload);
        const Bytes next = frame(0x82, payload);
        bytes.insert(bytes.end(), next.begin(), next.end());
    }
    for (int round = 0; round < 20; ++round) {
        WebsocketReader reader(100000);
        Recorder recorder;
        Bytes partial;
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t step = std::min<std::size_t>(bytes.size() - at, 1 + random() % (round < 10 ? 20 : 50000));
            partial.insert(partial.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                           bytes.begin() + static_cast<std::ptrdiff_t>(at + step));
            at += step;
            const std::size_t used = reader.read(partial, recorder);
            partial.erase(partial.begin(), partial.begin() + static_cast<std::ptrdiff_t>(used));
        }
        EXPECT_EQ(recorder.events, expected);
        EXPECT_TRUE(partial.empty());
    }
}

TEST(WebsocketReaderTest, FragmentsArePutTogetherWithControlFramesBetween) {
    WebsocketReader reader(1000);
    Recorder recorder;
    Bytes bytes = joined({frame(0x02, "a"), frame(0x89, "p"), frame(0x00, "b"), frame(0x80, "c"), frame(0x82, "d")});
    reader.read(bytes, recorder);
    EXPECT_THAT(recorder.events, ElementsAre("ping p", "message abc", "message d"));
}

TEST(WebsocketReaderTest, ASinkThatHasEnoughIsGivenNoMore) {
    WebsocketReader reader(1000);
    Recorder recorder;
    recorder.most = 2;
    Bytes bytes = joined({frame(0x82, "a"), frame(0x82, "b"), frame(0x82, "c")});
    EXPECT_EQ(reader.read(bytes, recorder), bytes.size() - frame(0x82, "c").size());
    EXPECT_EQ(recorder.events.size(), 2u);
}

TEST(WebsocketReaderTest, ACloseFrameEndsTheReading) {
    WebsocketReader reader(1000);
    Recorder recorder;
    Bytes bytes = joined({frame(0x88,
                                "\x03\xe9"
                                "bye"),
                          frame(0x82, "a")});
    reader.read(bytes, recorder);
    EXPECT_THAT(recorder.events, ElementsAre("close 1001"));
    Recorder other;
    Bytes empty = frame(0x88, "");
    reader.read(empty, other);
    EXPECT_THAT(other.events, ElementsAre("close none"));
}

TEST(WebsocketReaderTest, WhatTheStandardForbidsIsAnError) {
    EXPECT_EQ(errorOf({0x82, 0x01, 'x'}), 1002);  // no mask
    EXPECT_EQ(errorOf(frame(0x92, "x")), 1002);   // a reserved bit
    EXPECT_EQ(errorOf(frame(0x83, "x")), 1002);   // opcodes without meaning
    EXPECT_EQ(errorOf(frame(0x8b, "x")), 1002);
    EXPECT_EQ(errorOf(frame(0x80, "x")), 1002);                              // continues nothing
    EXPECT_EQ(errorOf(joined({frame(0x02, "x"), frame(0x82, "y")})), 1002);  // begins within another
    EXPECT_EQ(errorOf(frame(0x09, "x")), 1002);                              // a ping in fragments
    EXPECT_EQ(errorOf(frame(0x89, std::string(126, 'x'))), 1002);            // a ping too long
    EXPECT_EQ(errorOf(frame(0x88, "x")), 1002);                              // half a close code
    EXPECT_EQ(errorOf(frame(0x88, std::string("\x03\xed", 2))), 1002);       // 1005 is never sent
    EXPECT_EQ(errorOf({0x82, 0xfe, 0x00, 0x7d, 0, 0, 0, 0}), 1002);          // a length that is shorter written
    EXPECT_EQ(errorOf({0x82, 0xff, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0, 0, 0, 0}), 1002);
    EXPECT_EQ(errorOf(frame(0x81, "x")), 1003);  // text
    EXPECT_EQ(errorOf(frame(0x82, "x")), std::nullopt);
}

TEST(WebsocketReaderTest, WhatIsTooLongIsAnErrorAsSoonAsItIsAnnounced) {
    EXPECT_EQ(errorOf(frame(0x82, std::string(1000, 'x'))), std::nullopt);
    EXPECT_EQ(errorOf({0x82, 0xfe, 0x03, 0xe9}), 1009);
    EXPECT_EQ(errorOf({0x82, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}), 1009);
    EXPECT_EQ(errorOf(joined({frame(0x02, std::string(600, 'x')), frame(0x80, std::string(401, 'x'))})), 1009);
    EXPECT_EQ(errorOf(joined({frame(0x02, std::string(600, 'x')), frame(0x80, std::string(400, 'x'))})), std::nullopt);
}

TEST(WebsocketWriterTest, FramesAreWrittenAsTheStandardSays) {
    Bytes out;
    WebsocketWriter::appendMessage(out, bytesOf("Hi"));
    WebsocketWriter::appendPing(out, 0x0102030405060708);
    WebsocketWriter::appendPong(out, bytesOf("p"));
    WebsocketWriter::appendClose(out, 1008, "no");
    EXPECT_EQ(out,
              (Bytes{0x82, 2, 'H', 'i', 0x89, 8, 1, 2, 3, 4, 5, 6, 7, 8, 0x8a, 1, 'p', 0x88, 4, 0x03, 0xf0, 'n', 'o'}));
    for (const auto& [size, header] :
         std::vector<std::pair<std::size_t, Bytes>>{{125, {0x82, 125}},
                                                    {126, {0x82, 126, 0, 126}},
                                                    {65535, {0x82, 126, 0xff, 0xff}},
                                                    {65536, {0x82, 127, 0, 0, 0, 0, 0, 1, 0, 0}}}) {
        out.clear();
        WebsocketWriter::appendMessage(out, Bytes(size, 'x'));
        EXPECT_EQ(out.size(), header.size() + size);
        EXPECT_EQ(Bytes(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(header.size())), header);
    }
    out.clear();
    WebsocketWriter::appendClose(out, 1013, std::string(500, 'x'));
    EXPECT_EQ(out.size(), 2u + 125u);
}

}  // namespace
