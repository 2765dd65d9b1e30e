#include "ScanKit/WatchedCamera.h"

#include "TestSupport/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace {

using Kind = CameraMessage::Kind;
using testing::ElementsAre;
using testing::IsEmpty;

/// The test's end of a FakeProgram, which the camera owns.
struct Remote {
    std::optional<CameraProgram::Handlers> handlers;  // while it runs
    int starts = 0;

    void send(Kind kind) const {
        const auto tell = handlers.value().didSend;
        tell({kind, kind == Kind::frame ? std::make_shared<GreyFrame>(2, 2) : nullptr});
    }
    void crash() {
        const auto tell = handlers.value().didEnd;
        handlers.reset();
        tell();
    }
};

class FakeProgram : public CameraProgram {
public:
    explicit FakeProgram(Remote& remote) : remote(remote) {}
    ~FakeProgram() override { remote.handlers.reset(); }

    void start(Handlers handlers) override {
        remote.handlers = std::move(handlers);
        ++remote.starts;
    }
    void stop() override { remote.handlers.reset(); }

private:
    Remote& remote;
};

class WatchedCameraTest : public testing::Test {
protected:
    void start() {
        camera->start({[this](const SharedFrame& frame) {
                           EXPECT_TRUE(frame);
                           ++frames;
                           if (onFrame) onFrame();
                       },
                       [this](CameraTrouble trouble) {
                           troubles.push_back(trouble);
                           if (onTrouble) onTrouble();
                       }});
    }

    TestLoop loop;
    Remote program;
    std::unique_ptr<WatchedCamera> camera =
        std::make_unique<WatchedCamera>(loop, std::make_unique<FakeProgram>(program));
    int frames = 0;
    std::vector<CameraTrouble> troubles;
    std::function<void()> onFrame;
    std::function<void()> onTrouble;
};

TEST_F(WatchedCameraTest, FramesAndTheLackOfACameraAreTold) {
    start();
    program.send(Kind::alive);
    program.send(Kind::noCamera);
    EXPECT_THAT(troubles, ElementsAre(CameraTrouble::noCamera));
    // The program still runs, and waits for a camera.
    ASSERT_TRUE(program.handlers);
    program.send(Kind::frame);
    EXPECT_EQ(frames, 1);
}

TEST_F(WatchedCameraTest, ACameraThatCannotBeOpenedIsToldAndLeftAlone) {
    start();
    program.send(Kind::notOpened);
    EXPECT_THAT(troubles, ElementsAre(CameraTrouble::notOpened));
    EXPECT_FALSE(program.handlers);
    loop.advance(100);
    EXPECT_EQ(program.starts, 1);
    EXPECT_EQ(troubles.size(), 1U);
}

TEST_F(WatchedCameraTest, AProgramThatCrashesIsReplacedAtOnceWithoutAWord) {
    start();
    program.send(Kind::frame);
    for (int crashes = 1; crashes <= 5; ++crashes) {
        program.crash();
        EXPECT_EQ(program.starts, 1 + crashes);
        program.send(Kind::frame);
        loop.advance(WatchedCamera::steady);
    }
    EXPECT_THAT(troubles, IsEmpty());
    EXPECT_EQ(frames, 6);
}

TEST_F(WatchedCameraTest, AReplacementThatCrashesSoonIsACameraThatCannotBeOpened) {
    start();
    program.crash();
    loop.advance(WatchedCamera::steady - 0.1);
    program.send(Kind::frame);
    program.crash();
    EXPECT_THAT(troubles, ElementsAre(CameraTrouble::notOpened));
    EXPECT_EQ(program.starts, 2);
    EXPECT_FALSE(loop.hasTimers());

    // After a new start, the first crash leads to a replacement again.
    start();
    program.crash();
    EXPECT_EQ(program.starts, 4);
    EXPECT_EQ(troubles.size(), 1U);
}

TEST_F(WatchedCameraTest, AProgramThatHangsIsReplaced) {
    start();
    program.send(Kind::noCamera);
    for (int i = 0; i < 5; ++i) {
        loop.advance(WatchedCamera::patience - 0.1);
        EXPECT_EQ(program.starts, 1);
        program.send(Kind::alive);
    }
    loop.advance(WatchedCamera::patience);
    EXPECT_EQ(program.starts, 2);
    // The replacement says nothing at all; it too is replaced only after `patience`.
    loop.advance(WatchedCamera::patience);
    EXPECT_EQ(program.starts, 3);
    EXPECT_THAT(troubles, ElementsAre(CameraTrouble::noCamera));
}

TEST_F(WatchedCameraTest, NothingHappensAfterItIsStopped) {
    start();
    program.crash();
    camera->stop();
    EXPECT_FALSE(program.handlers);
    EXPECT_FALSE(loop.hasTimers());
    loop.advance(100);
    EXPECT_EQ(program.starts, 2);
    EXPECT_THAT(troubles, IsEmpty());
}

TEST_F(WatchedCameraTest, WhoIsToldMayStopItStartItAgainOrDestroyIt) {
    onFrame = [this] { camera->stop(); };
    start();
    program.send(Kind::frame);
    EXPECT_FALSE(program.handlers);

    onFrame = [this] { start(); };
    start();
    program.send(Kind::frame);
    EXPECT_TRUE(program.handlers);

    onFrame = [this] { camera.reset(); };
    program.send(Kind::frame);
    EXPECT_FALSE(program.handlers);
    EXPECT_EQ(frames, 3);

    onTrouble = [this] { camera.reset(); };
    for (const Kind kind : {Kind::noCamera, Kind::notOpened}) {
        camera = std::make_unique<WatchedCamera>(loop, std::make_unique<FakeProgram>(program));
        start();
        program.send(kind);
        EXPECT_FALSE(camera);
    }
    camera = std::make_unique<WatchedCamera>(loop, std::make_unique<FakeProgram>(program));
    start();
    program.crash();
    program.crash();
    EXPECT_FALSE(camera);
    EXPECT_FALSE(loop.hasTimers());
}

}  // namespace
