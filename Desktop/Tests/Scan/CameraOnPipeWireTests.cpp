#include "PlatformCore/QtMainLoop.h"
#include "PlatformDesktop/Camera.h"
#include "ScanKit/QRScanner.h"
#include "StateKit/WorkerThread.h"

#include "PaperKey.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>
#include <string>

namespace {

constexpr int patienceMs = 30'000;

/// A camera that others see as a real one, before which a picture is held.
class HeldPicture {
public:
    explicit HeldPicture(const QString& path) {
        process.setProcessChannelMode(QProcess::ForwardedChannels);
        process.start(
            QStringLiteral("gst-launch-1.0"),
            (QStringLiteral("-q filesrc location=%1 ! pngdec ! imagefreeze ! videoconvert ! videoscale ! "
                            "videorate ! video/x-raw,format=YUY2,width=640,height=480,framerate=15/1 ! identity "
                            "sync=true ! pipewiresink mode=provide "
                            "stream-properties=props,media.class=Video/Source,node.name=cam,media.role=Camera"))
                .arg(path)
                .split(QLatin1Char(' ')));
        process.waitForStarted();
    }
    ~HeldPicture() { unplug(); }

    void unplug() {
        process.terminate();
        if (!process.waitForFinished(5000)) process.kill();
        process.waitForFinished(5000);
    }

private:
    QProcess process;
};

// Waits for other processes, so it can't run in virtual time.
TEST(CameraOnPipeWireTest, ReadsAPaperKeyHeldBeforeTheCameraAndSurvivesItsUnplugging) {
    const QTemporaryDir folder;
    const QString path = folder.filePath("page.png");
    QImage picture(640, 480, QImage::Format_RGB32);
    picture.fill(Qt::gray);
    {
        QPainter painter(&picture);
        painter.translate(60, 60);
        painter.rotate(4);
        painter.drawImage(0, 0, PaperKey::page(4));
    }
    ASSERT_TRUE(picture.save(path));

    QtMainLoop loop;
    QRScanner scanner(loop, std::make_shared<WorkerThread>(WorkerThread::AtEnd::drops), std::make_unique<Camera>());
    std::string asked;
    bool isGood = false;
    scanner.setHandlers({[&](std::string_view payload) {
                             asked = payload;
                             return isGood;
                         },
                         {}});
    scanner.start();
    EXPECT_TRUE(QTest::qWaitFor([&] { return scanner.status() == QRScanner::Status::noCamera; }, patienceMs));

    // Plugged in while the scanner waits for one.
    HeldPicture held(path);
    EXPECT_TRUE(QTest::qWaitFor([&] { return scanner.status() == QRScanner::Status::live; }, patienceMs));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !asked.empty(); }, patienceMs));
    EXPECT_EQ(asked, PaperKey::text());
    EXPECT_EQ(scanner.status(), QRScanner::Status::live);

    isGood = true;
    EXPECT_TRUE(QTest::qWaitFor([&] { return scanner.status() == QRScanner::Status::frozen; }, patienceMs));
    ASSERT_TRUE(scanner.picture());
    EXPECT_EQ(scanner.picture()->width(), 640);
    EXPECT_EQ(scanner.picture()->height(), 480);

    isGood = false;
    scanner.start();
    EXPECT_TRUE(QTest::qWaitFor([&] { return scanner.status() == QRScanner::Status::live; }, patienceMs));
    held.unplug();
    EXPECT_TRUE(QTest::qWaitFor([&] { return scanner.status() == QRScanner::Status::noCamera; }, patienceMs));
}

}  // namespace
