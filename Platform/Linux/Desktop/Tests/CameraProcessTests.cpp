#include "PlatformDesktop/CameraProcess.h"

#include "TestSupport/TemporaryFolder.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using Kind = CameraMessage::Kind;
using testing::IsEmpty;

constexpr int patienceMs = 60'000;

/// A header as an argument of printf; width and height are below 65536.
std::string header(int kind, int width, int height) {
    const auto octal = [](int byte) {
        std::string digits = "\\000";
        for (int at = 3; at >= 1; --at, byte /= 8)
            digits[static_cast<std::size_t>(at)] = static_cast<char>('0' + byte % 8);
        return digits;
    };
    std::string text = "VCF1" + octal(kind) + octal(0) + octal(0) + octal(0);
    for (const int side : {width, height}) text += octal(side % 256) + octal(side / 256) + octal(0) + octal(0);
    return text;
}

std::string say(int kind, int width = 0, int height = 0) { return "printf '" + header(kind, width, height) + "'\n"; }

/// Tests with real child processes that behave badly. They wait for these, so they can't run in virtual time.
class CameraProcessTest : public testing::Test {
protected:
    /// Starts a child that writes its process number to a file and then runs the script.
    void start(const std::string& script) {
        process = std::make_unique<CameraProcess>(
            "/bin/sh", std::vector<std::string>{"-c", "echo $$ > " + numberFile().native() + ".new && mv " +
                                                          numberFile().native() + ".new " + numberFile().native() +
                                                          "\n" + script});
        run();
    }
    void run() {
        messages.clear();
        ends = 0;
        process->start({[this](CameraMessage message) {
                            messages.push_back(std::move(message));
                            if (onMessage) onMessage();
                        },
                        [this] {
                            ++ends;
                            if (onEnd) onEnd();
                        }});
        // No handler may be called within `start`.
        EXPECT_THAT(messages, IsEmpty());
        EXPECT_EQ(ends, 0);
    }

    std::filesystem::path numberFile() const { return folder.path / "number"; }
    pid_t number() {
        pid_t result = 0;
        waitFor([&] { return bool(std::ifstream(numberFile()) >> result); });
        return result;
    }

    static bool waitFor(const std::function<bool()>& isSo) {
        const QDeadlineTimer deadline(patienceMs);
        QTimer wake;  // looks at the condition even without events: other processes may make it true
        wake.start(10);
        while (!isSo() && !deadline.hasExpired()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return isSo();
    }
    /// Whether the child neither runs nor is a zombie.
    static bool isGone(pid_t child) { return child > 0 && ::kill(child, 0) != 0 && errno == ESRCH; }

    TemporaryFolder folder;
    std::unique_ptr<CameraProcess> process;
    std::vector<CameraMessage> messages;
    int ends = 0;
    std::function<void()> onMessage;
    std::function<void()> onEnd;
};

TEST_F(CameraProcessTest, WordsAndFramesArriveInOrder) {
    start(say(0) + say(1, 3, 2) + "printf abcdef\n" + say(2) + "exec sleep 1000");
    ASSERT_TRUE(waitFor([&] { return messages.size() == 3; }));
    EXPECT_EQ(messages[0].kind, Kind::alive);
    ASSERT_TRUE(messages[1].frame);
    EXPECT_EQ(messages[1].frame->width(), 3);
    EXPECT_EQ(messages[1].frame->row(1)[2], 'f');
    EXPECT_EQ(messages[2].kind, Kind::noCamera);
    EXPECT_EQ(ends, 0);
}

TEST_F(CameraProcessTest, AChildThatSendsBitByBitIsWaitedFor) {
    std::string script;
    for (const char byte : {'a', 'b', 'c', 'd'}) script += std::string("sleep 0.02; printf ") + byte + "\n";
    start(say(1, 2, 2) + script + "exec sleep 1000");
    ASSERT_TRUE(waitFor([&] { return messages.size() == 1; }));
    EXPECT_EQ(messages[0].frame->row(1)[1], 'd');
}

TEST_F(CameraProcessTest, AChildThatIsStoppedIsGoneSoonWhateverItDoes) {
    // Use "exec" in all scripts: a child of the child would live on and keep the test's output open.
    start("trap '' TERM INT HUP\n" + say(0) + "printf VCF1\nexec sleep 1000");
    ASSERT_TRUE(waitFor([&] { return messages.size() == 1; }));
    const pid_t child = number();
    ASSERT_GT(child, 0);
    process->stop();
    EXPECT_TRUE(waitFor([&] { return isGone(child); }));
    EXPECT_EQ(ends, 0);
    EXPECT_EQ(messages.size(), 1U);
}

TEST_F(CameraProcessTest, AChildThatTalksNonsenseIsEnded) {
    start("printf 'GET / HTTP/1.1\\r\\n'; exec sleep 1000");
    ASSERT_TRUE(waitFor([&] { return ends == 1; }));
    const pid_t child = number();
    EXPECT_TRUE(waitFor([&] { return isGone(child); }));
    EXPECT_THAT(messages, IsEmpty());
}

TEST_F(CameraProcessTest, AChildThatAnnouncesAHugeFrameIsEnded) {
    start(say(1, 16384, 16384) + "exec sleep 1000");
    EXPECT_TRUE(waitFor([&] { return ends == 1; }));
    EXPECT_THAT(messages, IsEmpty());
}

TEST_F(CameraProcessTest, AChildThatCrashesAmidAFrameHasEnded) {
    start(say(0) + say(1, 100, 100) + "printf abc; kill -SEGV $$");
    EXPECT_TRUE(waitFor([&] { return ends == 1; }));
    EXPECT_EQ(messages.size(), 1U);
    const pid_t child = number();
    EXPECT_TRUE(waitFor([&] { return isGone(child); }));
}

TEST_F(CameraProcessTest, AChildThatClosesItsOutputHasEnded) {
    start("exec >/dev/null </dev/null; exec sleep 1000");
    EXPECT_TRUE(waitFor([&] { return ends == 1; }));
    const pid_t child = number();
    EXPECT_TRUE(waitFor([&] { return isGone(child); }));
}

TEST_F(CameraProcessTest, AProgramThatIsNotThereHasEnded) {
    process = std::make_unique<CameraProcess>(folder.path / "none");
    run();
    EXPECT_TRUE(waitFor([&] { return ends == 1; }));
}

TEST_F(CameraProcessTest, AChildThatNeverPausesLeavesTimeForOthers) {
    start("while :; do " + say(0) + "done");
    int turns = 0;
    QTimer other;
    QObject::connect(&other, &QTimer::timeout, [&] { ++turns; });
    other.start(0);
    EXPECT_TRUE(waitFor([&] { return messages.size() > 50 && turns > 20; }));
}

TEST_F(CameraProcessTest, WhoIsToldMayStopItStartItAgainOrDestroyIt) {
    onMessage = [this] { process->stop(); };
    start(say(2) + say(2) + say(2) + "exec sleep 1000");
    ASSERT_TRUE(waitFor([&] { return messages.size() == 1; }));
    const pid_t child = number();
    EXPECT_TRUE(waitFor([&] { return isGone(child); }));
    EXPECT_EQ(messages.size(), 1U);

    // The handler starts the process again; the handler of the next message destroys it.
    onMessage = [this] {
        onMessage = [this] { process.reset(); };
        run();
    };
    run();
    ASSERT_TRUE(waitFor([&] { return !process; }));
    EXPECT_EQ(messages.size(), 1U);

    onMessage = nullptr;
    onEnd = [this] { process.reset(); };
    start("exit 1");
    EXPECT_TRUE(waitFor([&] { return !process; }));
    EXPECT_EQ(ends, 1);
}

TEST_F(CameraProcessTest, ManyStartsAndStopsLeaveNobodyBehind) {
    start(say(2) + "exec sleep 1000");
    std::vector<pid_t> children;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(waitFor([&] { return messages.size() == 1; }));
        children.push_back(number());
        std::filesystem::remove(numberFile());
        run();
    }
    process.reset();
    for (const pid_t child : children) EXPECT_TRUE(waitFor([&] { return isGone(child); }));
}

}  // namespace
