#include "DesktopKit/QRWindow.h"

#include "DesktopViews/QRScannerView.h"
#include "TestSupport/CodeFrame.h"
#include "TestSupport/FakeCamera.h"
#include "TestSupport/TestLoop.h"
#include "TestSupport/TestWorker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QImage>

#include <memory>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Status = QRScanner::Status;

struct Judge final : SignalTarget, QRScannerViewDelegate {
    bool acceptPayload(QRScannerView&, std::string_view payload) override {
        asked.emplace_back(payload);
        return payload == "good";
    }
    std::vector<std::string> asked;
};

class QRWindowTest : public testing::Test {
protected:
    QRWindowTest() { view().setDelegate(Weak<QRScannerViewDelegate>(&judge)); }

    QRScannerView& view() const { return window->qrScannerView(); }
    Status status() const { return view().scanner()->status(); }
    void see(const SharedFrame& frame) {
        camera.send(frame);
        while (worker->step()) loop.run();
    }
    /// The brightness of the view halfway down, at `across` (0 to 1) of its width.
    int seen(double across) const {
        const QImage shown = view().grab().toImage();
        return qGray(shown.pixel(static_cast<int>(across * shown.width()), shown.height() / 2));
    }

    TestLoop loop;
    std::shared_ptr<TestWorker> worker = std::make_shared<TestWorker>();
    FakeCamera::Remote camera;
    Judge judge;
    std::unique_ptr<QRWindow> window = std::make_unique<QRWindow>(
        new QRScannerView(std::make_unique<QRScanner>(loop, worker, std::make_unique<FakeCamera>(camera))));
};

TEST_F(QRWindowTest, ScansWhileItIsShown) {
    EXPECT_EQ(window->windowTitle(), "Scan");
    EXPECT_FALSE(camera.isRunning());
    window->show();
    EXPECT_TRUE(camera.isRunning());
    window->close();
    EXPECT_FALSE(camera.isRunning());
    window->show();
    EXPECT_EQ(camera.starts, 2);
    window.reset();
    EXPECT_FALSE(camera.isRunning());
}

TEST_F(QRWindowTest, TheDelegateIsAskedUntilItAcceptsAndAgainFromTheNextStart) {
    window->show();
    see(CodeFrame::of("bad"));
    see(CodeFrame::of("bad"));
    EXPECT_EQ(status(), Status::live);
    see(CodeFrame::of("good"));
    EXPECT_EQ(status(), Status::frozen);
    EXPECT_FALSE(camera.isRunning());
    EXPECT_NE(view().scanner()->picture(), nullptr);
    EXPECT_THAT(judge.asked, ElementsAre("bad", "bad", "good"));

    view().start();
    EXPECT_EQ(view().scanner()->picture(), nullptr);
    see(CodeFrame::of("good"));
    EXPECT_THAT(judge.asked, ElementsAre("bad", "bad", "good", "good"));
}

TEST_F(QRWindowTest, WithoutADelegateOrOnceItHasGoneNoCodeIsGood) {
    view().setDelegate(nullptr);
    window->show();
    see(CodeFrame::of("good"));
    EXPECT_EQ(status(), Status::live);
    {
        Judge brief;
        view().setDelegate(Weak<QRScannerViewDelegate>(&brief));
    }
    see(CodeFrame::of("good"));
    EXPECT_EQ(status(), Status::live);
    EXPECT_THAT(judge.asked, IsEmpty());
}

TEST_F(QRWindowTest, TheFrozenPictureStaysAsItWasSeenAndOneFromElsewhereIsNotMirrored) {
    window->resize(640, 480);
    window->show();
    auto frame = CodeFrame::blank();
    CodeFrame::draw(*frame, "good", 330, 150, 5);
    for (int y = 0; y < 480; ++y) std::fill_n(frame->row(y).begin(), 160, std::uint8_t(0));  // the left is black
    see(frame);
    ASSERT_EQ(status(), Status::frozen);
    EXPECT_GT(seen(0.1), 200);
    EXPECT_LT(seen(0.9), 50);

    view().freeze(frame);
    EXPECT_LT(seen(0.1), 50);
    EXPECT_GT(seen(0.97), 200);
}

TEST_F(QRWindowTest, WithoutAScannerItStaysEmpty) {
    QRWindow empty(new QRScannerView(nullptr));
    empty.show();
    empty.qrScannerView().start();
    empty.qrScannerView().freeze(CodeFrame::blank());
    empty.qrScannerView().stop();
    EXPECT_EQ(empty.qrScannerView().scanner(), nullptr);
    const QImage shown = empty.qrScannerView().grab().toImage();
    EXPECT_EQ(shown.pixelColor(shown.rect().center()), QColor(179, 179, 179));
}

}  // namespace
