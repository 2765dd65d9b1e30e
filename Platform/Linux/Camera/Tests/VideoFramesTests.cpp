#include "PlatformCamera/VideoFrames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <vector>

namespace {

using Format = QVideoFrameFormat;

/// A frame whose first plane begins with `row`; all other bytes are zero.
QVideoFrame frameOf(Format::PixelFormat format, std::initializer_list<uchar> row, const QSize& size = {4, 2}) {
    QVideoFrame frame(Format(size, format));
    EXPECT_TRUE(frame.map(QVideoFrame::WriteOnly));
    for (int plane = 0; plane < frame.planeCount(); ++plane)
        std::memset(frame.bits(plane), 0, static_cast<std::size_t>(frame.mappedBytes(plane)));
    std::copy(row.begin(), row.end(), frame.bits(0));
    frame.unmap();
    return frame;
}

std::vector<int> firstRow(const SharedFrame& frame) {
    if (!frame) return {};
    const ByteView row = frame->row(0);
    return {row.begin(), row.end()};
}

TEST(VideoFramesTest, BrightnessIsTakenAsItIsWhereItIsApart) {
    const std::vector<int> wanted{10, 20, 30, 40};
    for (const auto format : {Format::Format_YUV420P, Format::Format_NV12, Format::Format_Y8})
        EXPECT_EQ(firstRow(VideoFrames::grey(frameOf(format, {10, 20, 30, 40}))), wanted) << format;
    EXPECT_EQ(firstRow(VideoFrames::grey(frameOf(Format::Format_YUYV, {10, 1, 20, 2, 30, 3, 40, 4}))), wanted);
    EXPECT_EQ(firstRow(VideoFrames::grey(frameOf(Format::Format_UYVY, {1, 10, 2, 20, 3, 30, 4, 40}))), wanted);
    EXPECT_EQ(firstRow(VideoFrames::grey(frameOf(Format::Format_Y16, {1, 10, 2, 20, 3, 30, 4, 40}))), wanted);
}

TEST(VideoFramesTest, ColoursAreWeighedAndTransparencyIsNot) {
    // The pixels are white, red, green and blue, with an alpha of zero.
    const std::vector<int> wanted{255, 76, 149, 28};
    EXPECT_EQ(firstRow(VideoFrames::grey(
                  frameOf(Format::Format_BGRA8888, {255, 255, 255, 0, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0}))),
              wanted);
    EXPECT_EQ(firstRow(VideoFrames::grey(
                  frameOf(Format::Format_RGBX8888, {255, 255, 255, 0, 255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 255, 0}))),
              wanted);
    EXPECT_EQ(firstRow(VideoFrames::grey(
                  frameOf(Format::Format_XRGB8888, {0, 255, 255, 255, 0, 255, 0, 0, 0, 0, 255, 0, 0, 0, 0, 255}))),
              wanted);
    EXPECT_EQ(firstRow(VideoFrames::grey(
                  frameOf(Format::Format_XBGR8888, {0, 255, 255, 255, 0, 0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0}))),
              wanted);
}

TEST(VideoFramesTest, AllRowsAreReadAcrossTheGapsBetweenThem) {
    QVideoFrame frame(Format({6, 3}, Format::Format_Y8));
    ASSERT_TRUE(frame.map(QVideoFrame::WriteOnly));
    std::memset(frame.bits(0), 99, static_cast<std::size_t>(frame.mappedBytes(0)));
    for (int y = 0; y < 3; ++y) std::memset(frame.bits(0) + y * frame.bytesPerLine(0), y, 6);
    frame.unmap();
    const SharedFrame grey = VideoFrames::grey(frame);
    ASSERT_TRUE(grey);
    for (int y = 0; y < 3; ++y)
        for (const std::uint8_t pixel : grey->row(y)) EXPECT_EQ(pixel, y);
}

TEST(VideoFramesTest, WhatCannotBeReadIsNull) {
    EXPECT_FALSE(VideoFrames::grey(QVideoFrame()));
    for (const auto format : {Format::Format_Invalid, Format::Format_SamplerExternalOES, Format::Format_AYUV}) {
        EXPECT_FALSE(VideoFrames::isReadable(format));
        EXPECT_FALSE(VideoFrames::grey(QVideoFrame(Format({4, 2}, format))));
    }
    EXPECT_FALSE(VideoFrames::grey(QVideoFrame(Format({20000, 2}, Format::Format_Y8))));
    EXPECT_TRUE(VideoFrames::isReadable(Format::Format_Jpeg));
    // This JPEG frame is empty.
    EXPECT_FALSE(VideoFrames::grey(QVideoFrame(Format({4, 2}, Format::Format_Jpeg))));
}

}  // namespace
