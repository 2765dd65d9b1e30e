#include "ScanKit/QRScanner.h"

#include "ScanKit/WatchedCamera.h"
#include "TestSupport/CodeFrame.h"
#include "TestSupport/FakeCamera.h"
#include "TestSupport/TestLoop.h"
#include "TestSupport/TestWorker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using Status = QRScanner::Status;
using testing::ElementsAre;
using testing::IsEmpty;

class QRScannerTest : public testing::Test {
protected:
    QRScannerTest() {
        scanner = std::make_unique<QRScanner>(loop, worker, std::make_unique<FakeCamera>(camera));
        scanner->setHandlers({[this](std::string_view payload) {
                                  asked.emplace_back(payload);
                                  return onAsked ? onAsked(payload) : payload == "good";
                              },
                              [this] { ++changes; }});
    }

    /// Sends a frame, and lets the worker and the loop finish with it.
    void see(SharedFrame frame) {
        camera.send(std::move(frame));
        settle();
    }
    void settle() {
        while (worker->waiting() > 0) {
            worker->step();
            loop.run();
        }
    }

    TestLoop loop;
    std::shared_ptr<TestWorker> worker = std::make_shared<TestWorker>();
    FakeCamera::Remote camera;
    std::unique_ptr<QRScanner> scanner;
    std::vector<std::string> asked;
    std::function<bool(std::string_view)> onAsked;
    int changes = 0;
    const SharedFrame good = CodeFrame::of("good");
    const SharedFrame bad = CodeFrame::of("bad");
    const SharedFrame empty = CodeFrame::blank();
};

TEST_F(QRScannerTest, DoesNothingBeforeItIsStarted) {
    EXPECT_EQ(scanner->status(), Status::stopped);
    EXPECT_EQ(camera.starts, 0);
    loop.advance(60);
    EXPECT_EQ(changes, 0);
    scanner->stop();
    EXPECT_EQ(changes, 0);
}

TEST_F(QRScannerTest, ShowsEachFrameAsItComes) {
    scanner->start();
    EXPECT_EQ(scanner->status(), Status::starting);
    EXPECT_EQ(scanner->picture(), nullptr);
    see(empty);
    EXPECT_EQ(scanner->status(), Status::live);
    EXPECT_EQ(scanner->picture(), empty);
    EXPECT_THAT(asked, IsEmpty());
}

TEST_F(QRScannerTest, ABadCodeIsAskedAboutAtEveryFrameAndDoesNotStopTheCamera) {
    scanner->start();
    see(bad);
    see(bad);
    EXPECT_THAT(asked, ElementsAre("bad", "bad"));
    EXPECT_EQ(scanner->status(), Status::live);
    EXPECT_TRUE(camera.isRunning());
}

TEST_F(QRScannerTest, AGoodCodeFreezesAtItsFrameAndLetsGoOfTheCamera) {
    scanner->start();
    camera.send(good);
    camera.send(empty);
    EXPECT_EQ(scanner->picture(), empty);
    settle();
    EXPECT_EQ(scanner->status(), Status::frozen);
    EXPECT_EQ(scanner->picture(), good);
    EXPECT_FALSE(camera.isRunning());
    EXPECT_THAT(asked, ElementsAre("good"));
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(QRScannerTest, AfterAGoodCodeNothingIsAskedUntilTheNextStartWhichClearsThePicture) {
    scanner->start();
    camera.send(good);
    camera.send(good);
    settle();
    loop.advance(60);
    EXPECT_THAT(asked, ElementsAre("good"));
    scanner->start();
    EXPECT_EQ(scanner->picture(), nullptr);
    EXPECT_EQ(scanner->status(), Status::starting);
    see(good);
    EXPECT_THAT(asked, ElementsAre("good", "good"));
}

TEST_F(QRScannerTest, OfTheFramesThatComeWhileOneIsLookedAtOnlyTheNewestIsKept) {
    scanner->start();
    camera.send(empty);
    for (const char* text : {"one", "two", "three"}) camera.send(CodeFrame::of(text));
    EXPECT_EQ(worker->waiting(), 1U);
    settle();
    EXPECT_THAT(asked, ElementsAre("three"));
}

TEST_F(QRScannerTest, AnAnswerThatComesAfterTheStopIsDropped) {
    scanner->start();
    camera.send(good);
    scanner->stop();
    EXPECT_EQ(scanner->status(), Status::stopped);
    EXPECT_EQ(scanner->picture(), nullptr);
    settle();
    EXPECT_THAT(asked, IsEmpty());

    scanner->start();
    camera.send(good);
    worker->step();
    scanner->stop();
    loop.run();
    EXPECT_THAT(asked, IsEmpty());
    EXPECT_EQ(scanner->status(), Status::stopped);
}

TEST_F(QRScannerTest, AnAnswerOfAnEarlierRunIsDroppedInTheNext) {
    scanner->start();
    camera.send(good);
    scanner->start();
    camera.send(bad);
    settle();
    EXPECT_THAT(asked, ElementsAre("bad"));
}

TEST_F(QRScannerTest, WhoIsAskedMayStopStartOrDestroyTheScanner) {
    onAsked = [this](std::string_view) {
        scanner->stop();
        return true;
    };
    scanner->start();
    see(good);
    EXPECT_EQ(scanner->status(), Status::stopped);
    EXPECT_FALSE(camera.isRunning());

    onAsked = [this](std::string_view) {
        scanner->start();
        return true;
    };
    scanner->start();
    see(good);
    EXPECT_EQ(scanner->status(), Status::starting);
    EXPECT_TRUE(camera.isRunning());

    onAsked = [this](std::string_view) {
        scanner.reset();
        return true;
    };
    camera.send(good);
    camera.send(good);
    settle();
    EXPECT_EQ(asked.size(), 3U);
    EXPECT_FALSE(camera.isRunning());
}

TEST_F(QRScannerTest, DyingInTheMidstLeavesNothingBehind) {
    scanner->start();
    camera.send(good);
    worker->step();
    scanner.reset();
    loop.run();
    EXPECT_THAT(asked, IsEmpty());
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(QRScannerTest, WithoutHandlersNoCodeIsGood) {
    scanner->setHandlers({});
    scanner->start();
    see(good);
    EXPECT_EQ(scanner->status(), Status::live);
}

TEST_F(QRScannerTest, WithoutACameraItWaitsForOne) {
    scanner->start();
    camera.fail(CameraTrouble::noCamera);
    EXPECT_EQ(scanner->status(), Status::noCamera);
    loop.advance(600);
    EXPECT_EQ(scanner->status(), Status::noCamera);
    EXPECT_EQ(camera.starts, 1);
    see(good);
    EXPECT_EQ(scanner->status(), Status::frozen);
}

TEST_F(QRScannerTest, ACameraThatIsUnpluggedWhileScanningTakesItsPictureAway) {
    scanner->start();
    camera.send(empty);
    camera.send(good);
    camera.fail(CameraTrouble::noCamera);
    EXPECT_EQ(scanner->status(), Status::noCamera);
    EXPECT_EQ(scanner->picture(), nullptr);
    settle();
    EXPECT_THAT(asked, IsEmpty());
    see(bad);
    EXPECT_EQ(scanner->status(), Status::live);
    EXPECT_THAT(asked, ElementsAre("bad"));
}

TEST_F(QRScannerTest, ACameraThatCanNotBeOpenedIsTriedAgain) {
    scanner->start();
    camera.fail(CameraTrouble::notOpened);
    EXPECT_EQ(scanner->status(), Status::notOpened);
    loop.advance(QRScanner::pause - 0.1);
    EXPECT_EQ(camera.starts, 1);
    loop.advance(0.1);
    EXPECT_EQ(camera.starts, 2);
    EXPECT_EQ(scanner->status(), Status::notOpened);
    see(good);
    EXPECT_EQ(scanner->status(), Status::frozen);
}

TEST_F(QRScannerTest, ACameraThatFallsSilentIsToldOfAndTriedAgain) {
    scanner->start();
    loop.advance(QRScanner::silence - 0.1);
    EXPECT_EQ(scanner->status(), Status::starting);
    see(empty);
    loop.advance(QRScanner::silence - 0.1);
    EXPECT_EQ(scanner->status(), Status::live);
    loop.advance(0.1);
    EXPECT_EQ(scanner->status(), Status::silent);
    EXPECT_EQ(scanner->picture(), nullptr);
    EXPECT_FALSE(camera.isRunning());
    loop.advance(QRScanner::pause);
    EXPECT_TRUE(camera.isRunning());
    EXPECT_EQ(scanner->status(), Status::silent);
    see(good);
    EXPECT_EQ(scanner->status(), Status::frozen);
    loop.advance(60);
    EXPECT_EQ(camera.starts, 2);
}

TEST_F(QRScannerTest, ACameraThatStartsAsSlowlyAsItMayIsNotStoppedBefore) {
    EXPECT_GT(QRScanner::silence, WatchedCamera::patience);
}

TEST_F(QRScannerTest, APictureThatCameAnotherWayFreezesItToo) {
    scanner->start();
    camera.send(bad);
    scanner->freeze(good);
    settle();
    EXPECT_EQ(scanner->status(), Status::frozen);
    EXPECT_EQ(scanner->picture(), good);
    EXPECT_FALSE(camera.isRunning());
    EXPECT_THAT(asked, IsEmpty());
}

}  // namespace
