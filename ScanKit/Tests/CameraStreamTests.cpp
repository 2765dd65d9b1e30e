#include "ScanKit/CameraStream.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using Kind = CameraMessage::Kind;

std::shared_ptr<GreyFrame> frameOf(int width, int height) {
    auto frame = std::make_shared<GreyFrame>(width, height);
    std::uint8_t grey = 0;
    for (int y = 0; y < height; ++y)
        for (auto& pixel : frame->row(y)) pixel = grey++;
    return frame;
}

Bytes bytesOf(const CameraMessage& message) {
    const auto header = CameraStream::headerOf(message);
    Bytes bytes(header.begin(), header.end());
    if (message.frame) bytes.insert(bytes.end(), message.frame->pixels().begin(), message.frame->pixels().end());
    return bytes;
}

Bytes header(std::uint8_t kind, std::uint32_t width, std::uint32_t height) {
    Bytes bytes{'V', 'C', 'F', '1', kind, 0, 0, 0};
    for (const std::uint32_t side : {width, height})
        for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<std::uint8_t>(side >> shift));
    return bytes;
}

/// Gives the stream at most `atOnce` bytes at a time.
std::vector<CameraMessage> read(CameraStream& stream, ByteView bytes, std::size_t atOnce) {
    std::vector<CameraMessage> messages;
    while (!bytes.empty()) {
        const auto room = stream.room();
        const std::size_t count = std::min({room.size(), bytes.size(), atOnce});
        std::copy_n(bytes.begin(), count, room.begin());
        bytes = bytes.subspan(count);
        if (auto message = stream.advance(count)) messages.push_back(std::move(*message));
    }
    return messages;
}

std::vector<CameraMessage> read(const Bytes& bytes) {
    CameraStream stream;
    return read(stream, bytes, bytes.size());
}

TEST(CameraStreamTest, AHeaderIsLaidOutAsItIsDescribed) {
    EXPECT_EQ(bytesOf({Kind::noCamera, nullptr}), header(2, 0, 0));
    const auto bytes = bytesOf({Kind::frame, frameOf(300, 2)});
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 16), header(1, 300, 2));
    EXPECT_EQ(bytes.size(), 16U + 600U);
}

TEST(CameraStreamTest, MessagesAreReadInWhateverPiecesTheyCome) {
    Bytes bytes;
    for (const CameraMessage& message :
         {CameraMessage{Kind::alive, nullptr}, CameraMessage{Kind::frame, frameOf(7, 5)},
          CameraMessage{Kind::notOpened, nullptr}, CameraMessage{Kind::frame, frameOf(1, 1)}}) {
        const Bytes one = bytesOf(message);
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    for (std::size_t atOnce = 1; atOnce <= bytes.size(); ++atOnce) {
        CameraStream stream;
        const auto messages = read(stream, bytes, atOnce);
        ASSERT_EQ(messages.size(), 4U) << atOnce;
        EXPECT_EQ(messages[0], (CameraMessage{Kind::alive, nullptr}));
        ASSERT_TRUE(messages[1].frame);
        EXPECT_EQ(messages[1].frame->width(), 7);
        EXPECT_EQ(messages[1].frame->height(), 5);
        EXPECT_TRUE(std::ranges::equal(messages[1].frame->pixels(), frameOf(7, 5)->pixels()));
        EXPECT_EQ(messages[2].kind, Kind::notOpened);
        EXPECT_EQ(messages[3].kind, Kind::frame);
    }
}

TEST(CameraStreamTest, AFrameThatIsCutShortIsNoMessage) {
    Bytes bytes = bytesOf({Kind::frame, frameOf(4, 4)});
    bytes.pop_back();
    EXPECT_TRUE(read(bytes).empty());
}

TEST(CameraStreamTest, EveryByteOfAHeaderThatIsNotAsItShouldBeIsRefused) {
    for (std::size_t at = 0; at < 8; ++at) {
        Bytes bytes = header(0, 0, 0);
        bytes[at] ^= 0x80;
        EXPECT_THROW((void)read(bytes), CameraStreamError) << at;
    }
    EXPECT_THROW((void)read(header(4, 0, 0)), CameraStreamError);
}

TEST(CameraStreamTest, ImpossibleSizesAreRefused) {
    const std::uint32_t huge = 0xFFFFFFFF;
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> sizes{
        {0, 0},    {0, 1},     {1, 0},     {huge, huge}, {huge, 1},
        {1, huge}, {16385, 1}, {1, 16385}, {8192, 4097}, {65536, 65536}};
    for (const auto& [width, height] : sizes)
        EXPECT_THROW((void)read(header(1, width, height)), CameraStreamError) << width << " x " << height;
    for (const std::uint8_t kind : {0, 2, 3}) EXPECT_THROW((void)read(header(kind, 1, 1)), CameraStreamError);
    EXPECT_TRUE(read(header(1, 8192, 4096)).empty());
}

TEST(CameraStreamTest, WhatFitsIsWhatIsRead) {
    EXPECT_TRUE(CameraStream::fits(8192, 4096));
    EXPECT_TRUE(CameraStream::fits(16384, 1));
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{{8192, 4097}, {16385, 1}, {0, 5}, {-3, -3}})
        EXPECT_FALSE(CameraStream::fits(width, height));
}

}  // namespace
