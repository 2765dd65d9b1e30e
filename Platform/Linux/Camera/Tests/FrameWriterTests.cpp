#include "PlatformCamera/FrameWriter.h"

#include <QCoreApplication>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Kind = CameraMessage::Kind;
using testing::ElementsAre;

class FrameWriterTest : public testing::Test {
protected:
    FrameWriterTest() {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        writer = std::make_unique<FrameWriter>(ends[1], [this] { ++isOver; });
    }
    ~FrameWriterTest() override {
        writer.reset();
        for (const int end : ends)
            if (end >= 0) ::close(end);
    }

    /// A frame that is too large for the socket's buffer.
    static SharedFrame frameOf(std::uint8_t grey) {
        auto frame = std::make_shared<GreyFrame>(2000, 1000);
        for (auto& pixel : frame->pixels()) pixel = grey;
        return frame;
    }

    /// The messages that have arrived, as numbers: the grey of a frame, or 1000 plus the kind of another message.
    std::vector<int> readAll() {
        std::vector<int> seen;
        for (;;) {
            QCoreApplication::processEvents();
            const auto room = stream.room();
            const ssize_t count = ::recv(ends[0], room.data(), room.size(), MSG_DONTWAIT);
            if (count <= 0) return seen;
            if (const auto message = stream.advance(static_cast<std::size_t>(count)))
                seen.push_back(message->frame ? message->frame->pixels().back()
                                              : 1000 + static_cast<int>(message->kind));
        }
    }

    int argc = 0;
    QCoreApplication application{argc, nullptr};
    std::array<int, 2> ends{-1, -1};
    int isOver = 0;
    std::unique_ptr<FrameWriter> writer;
    CameraStream stream;
};

TEST_F(FrameWriterTest, AReaderWhoKeepsUpGetsEveryFrame) {
    for (const std::uint8_t grey : {1, 2, 3}) {
        writer->put(frameOf(grey));
        EXPECT_THAT(readAll(), ElementsAre(grey));
    }
}

TEST_F(FrameWriterTest, AReaderWhoIsLateGetsTheOneThatWasBegunAndTheNewest) {
    writer->put(frameOf(1));
    QCoreApplication::processEvents();
    for (const std::uint8_t grey : {2, 3, 4, 5}) {
        writer->put(frameOf(grey));
        QCoreApplication::processEvents();
    }
    EXPECT_THAT(readAll(), ElementsAre(1, 5));
}

TEST_F(FrameWriterTest, NoMoreThanOneFrameIsKeptForALateReader) {
    std::vector<std::weak_ptr<const GreyFrame>> frames;
    for (std::uint8_t grey = 0; grey < 10; ++grey) {
        SharedFrame frame = frameOf(grey);
        frames.emplace_back(frame);
        writer->put(std::move(frame));
        QCoreApplication::processEvents();
    }
    int kept = 0;
    for (const auto& frame : frames) kept += frame.expired() ? 0 : 1;
    EXPECT_EQ(kept, 2);
    EXPECT_FALSE(frames.front().expired());
    EXPECT_FALSE(frames.back().expired());
}

TEST_F(FrameWriterTest, AWordGoesBeforeAFrameThatWaitsAndNotIntoTheOneOnItsWay) {
    writer->put(frameOf(1));
    QCoreApplication::processEvents();
    writer->put(frameOf(2));
    writer->say(Kind::alive);
    writer->say(Kind::noCamera);
    writer->say(Kind::alive);
    EXPECT_THAT(readAll(), ElementsAre(1, 1002, 2));
    writer->say(Kind::alive);
    EXPECT_THAT(readAll(), ElementsAre(1000));
}

TEST_F(FrameWriterTest, AReaderWhoIsGoneEndsItOnce) {
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    ::close(std::exchange(ends[0], -1));
    writer->put(frameOf(1));
    QCoreApplication::processEvents();
    writer->put(frameOf(2));
    writer->say(Kind::alive);
    QCoreApplication::processEvents();
    EXPECT_EQ(isOver, 1);
    std::signal(SIGPIPE, before);
}

}  // namespace
