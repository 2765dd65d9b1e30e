#include "PlatformCore/QtMainLoop.h"
#include "PlatformDesktop/CameraProcess.h"
#include "ScanKit/QRScanner.h"
#include "ScanKit/WatchedCamera.h"
#include "StateKit/WorkerThread.h"

#include "TestSupport/CodeFrame.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Status = QRScanner::Status;

constexpr int patienceMs = 40'000;
constexpr int toolPatienceMs = 12'000;  // longer than it takes until a silent camera is started again

/// A camera that looks real to other programs, and always sees one picture. The tool that plays the camera sometimes
/// crashes when a reader comes or goes, which no real camera does: then the tests plug it in again.
class HeldPicture {
public:
    explicit HeldPicture(const QString& path) {
        process.setProcessChannelMode(QProcess::ForwardedChannels);
        process.setProgram(QStringLiteral("gst-launch-1.0"));
        // Without --no-fault, the tool would not end after a crash, but wait for a debugger.
        process.setArguments(
            (QStringLiteral("--no-fault -q filesrc location=%1 ! pngdec ! imagefreeze ! videoconvert ! videoscale ! "
                            "videorate ! video/x-raw,format=YUY2,width=640,height=480,framerate=15/1 ! identity "
                            "sync=true ! pipewiresink mode=provide "
                            "stream-properties=props,media.class=Video/Source,node.name=cam,media.role=Camera"))
                .arg(path)
                .split(QLatin1Char(' ')));
        QObject::connect(&process, &QProcess::finished, &process, [this] {
            if (isPlugged) process.start();
        });
        process.start();
        process.waitForStarted();
    }
    ~HeldPicture() { unplug(); }

    void unplug() {
        isPlugged = false;
        process.terminate();
        if (!process.waitForFinished(5000)) process.kill();
        process.waitForFinished(5000);
    }

    /// Makes the camera stay plugged in but send nothing, like one that another program has taken.
    void freeze() { ::kill(static_cast<pid_t>(process.processId()), SIGSTOP); }
    void thaw() { ::kill(static_cast<pid_t>(process.processId()), SIGCONT); }

private:
    QProcess process;
    bool isPlugged = true;
};

bool waitFor(const std::function<bool()>& isSo, int timeMs = patienceMs) {
    const QDeadlineTimer deadline(timeMs);
    QTimer wake;  // looks at the condition even without events: other processes may make it true
    wake.start(10);
    while (!isSo() && !deadline.hasExpired()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return isSo();
}

void waitMs(int time) {
    QEventLoop events;
    QTimer::singleShot(time, &events, &QEventLoop::quit);
    events.exec();
}

/// The camera programs that are children of this process and still exist.
std::vector<pid_t> cameraPrograms() {
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream status(entry.path() / "stat");
        std::string number, name, state;
        pid_t parent = 0;
        if (status >> number >> name >> state >> parent && parent == ::getpid() && name == "(vimble-camera)")
            found.push_back(static_cast<pid_t>(std::stol(number)));
    }
    return found;
}

// These tests wait for other processes, so they can't run in virtual time.
class CameraOnPipeWireTest : public testing::Test {
protected:
    void SetUp() override {
        path = folder.filePath(QStringLiteral("page.png"));
        const SharedFrame page = CodeFrame::of(text);
        const QImage picture(page->pixels().data(), page->width(), page->height(), page->width(),
                             QImage::Format_Grayscale8);
        ASSERT_TRUE(picture.save(path));
        scanner.setHandlers({[this](std::string_view payload) {
                                 asked = payload;
                                 return isGood;
                             },
                             {}});
    }

    void TearDown() override {
        scanner.stop();
        EXPECT_TRUE(waitFor([] { return cameraPrograms().empty(); }));
    }

    bool reaches(Status status) {
        return waitFor([&] { return scanner.status() == status; });
    }

    void plug() { held.emplace(path); }

    /// Whether a picture comes and its code is read. The tool that plays the camera may also hang: then the camera is
    /// plugged in again.
    bool reads() {
        for (int tries = 0; tries < 4; ++tries) {
            if (tries > 0) plug();
            asked.clear();
            if (waitFor([&] { return !asked.empty() && scanner.picture(); }, toolPatienceMs)) return asked == text;
        }
        return false;
    }

    const std::string text = std::string(60, 'a') + "0123";
    QTemporaryDir folder;
    QString path;
    QtMainLoop loop;
    QRScanner scanner{
        loop, std::make_shared<WorkerThread>(WorkerThread::AtEnd::drops),
        std::make_unique<WatchedCamera>(loop, std::make_unique<CameraProcess>(CameraProcess::installed()))};
    std::optional<HeldPicture> held;
    std::string asked;
    bool isGood = false;
};

TEST_F(CameraOnPipeWireTest, ReadsAPaperKeyHeldBeforeTheCameraAndSurvivesItsUnplugging) {
    scanner.start();
    ASSERT_TRUE(reaches(Status::noCamera));

    // A camera is plugged in while the scanner waits for one.
    plug();
    ASSERT_TRUE(reads());
    EXPECT_EQ(scanner.status(), Status::live);

    isGood = true;
    ASSERT_TRUE(reaches(Status::frozen));
    ASSERT_TRUE(scanner.picture());
    EXPECT_EQ(scanner.picture()->width(), 640);
    EXPECT_EQ(scanner.picture()->height(), 480);
    EXPECT_TRUE(waitFor([] { return cameraPrograms().empty(); }));

    isGood = false;
    scanner.start();
    ASSERT_TRUE(reads());
    scanner.stop();
    scanner.start();
    ASSERT_TRUE(reads());
    held->unplug();
    ASSERT_TRUE(reaches(Status::noCamera));

    // Another camera is plugged in.
    plug();
    ASSERT_TRUE(reads());
}

TEST_F(CameraOnPipeWireTest, ACameraThatIsStoppedAmidAStartLeavesNothingBehind) {
    plug();
    for (int i = 0; i < 10; ++i) {
        scanner.start();
        // Stop later in each round: at first before the process exists, at last at about its first frame.
        waitMs(i * 40);
        scanner.stop();
    }
    EXPECT_TRUE(waitFor([] { return cameraPrograms().empty(); }));
    scanner.start();
    EXPECT_TRUE(reads());
}

TEST_F(CameraOnPipeWireTest, ACrashOfTheCameraProgramIsMadeGood) {
    plug();
    scanner.start();
    ASSERT_TRUE(reads());
    const auto before = cameraPrograms();
    ASSERT_EQ(before.size(), 1U);
    ::kill(before.front(), SIGSEGV);
    ASSERT_TRUE(waitFor([&] {
        const auto now = cameraPrograms();
        return now.size() == 1 && now != before;
    }));
    EXPECT_TRUE(reads());
}

TEST_F(CameraOnPipeWireTest, ACameraThatSendsNothingIsSilentUntilItDoesAgain) {
    plug();
    scanner.start();
    ASSERT_TRUE(reads());
    held->freeze();
    EXPECT_TRUE(reaches(Status::silent));
    held->thaw();
    EXPECT_TRUE(reads());
}

}  // namespace
