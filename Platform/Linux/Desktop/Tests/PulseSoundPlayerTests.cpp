#include "PlatformDesktop/PulseSoundPlayer.h"

#include "PlatformCore/QtMessages.h"
#include "QtTestSupport/QtWait.h"
#include "SoundFile.h"

#include <QDir>
#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

// Each suite needs a machine of its own, without a sound server; sounds.sh provides it.

namespace {

QString serverSocket() { return qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/pulse/native"); }

/// A sound server that plays to a null sink, which can be recorded.
class NullServer {
public:
    NullServer() {
        process.start(QStringLiteral("pulseaudio"),
                      {QStringLiteral("-n"), QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"),
                       QStringLiteral("-L"), QStringLiteral("module-native-protocol-unix"), QStringLiteral("-L"),
                       QStringLiteral("module-null-sink sink_name=nul rate=48000")});
        EXPECT_TRUE(turnUntil([] { return QFile::exists(serverSocket()); }));
    }
    ~NullServer() {
        process.terminate();
        process.waitForFinished();
    }
    NullServer(const NullServer&) = delete;
    NullServer& operator=(const NullServer&) = delete;

private:
    QProcess process;
};

/// Records everything that is played from now on.
class Recording {
public:
    Recording() {
        process.start(QStringLiteral("parec"),
                      {QStringLiteral("-d"), QStringLiteral("nul.monitor"), QStringLiteral("--raw"),
                       QStringLiteral("--format=s16le"), QStringLiteral("--rate=48000"), QStringLiteral("--channels=1"),
                       QStringLiteral("--latency-msec=20")});
        EXPECT_TRUE(turnUntil([this] { return !samples().empty(); }));
    }
    ~Recording() {
        process.terminate();
        process.waitForFinished();
    }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    std::vector<int> samples() {
        bytes += process.readAllStandardOutput();
        return SoundFile::fromBytes(bytes);
    }

    /// The recorded sound, once half a second of silence has followed it; empty if that does not happen in time.
    std::vector<int> sound(int withinMs = 20000) {
        std::vector<int> found;
        turnUntil(
            [&] {
                const std::vector<int> all = samples();
                const auto isHeard = [](int sample) { return sample != 0; };
                const auto first = std::find_if(all.begin(), all.end(), isHeard);
                const auto last = std::find_if(all.rbegin(), all.rend(), isHeard).base();
                if (first == all.end() || all.end() - last < SoundFile::rate / 2) return false;
                found.assign(first, last);
                return true;
            },
            withinMs);
        return found;
    }

private:
    QProcess process;
    QByteArray bytes;
};

/// How similar two signals are, from 0 to 1, at the shift that fits best.
double likeness(const std::vector<int>& a, const std::vector<int>& b) {
    constexpr int farthest = 200;
    double best = 0;
    for (int shift = -farthest; shift <= farthest; shift++) {
        double both = 0;
        double ofA = 0;
        double ofB = 0;
        for (std::size_t i = farthest; i + farthest < std::min(a.size(), b.size()); i++) {
            const double x = a[i];
            const double y = b[static_cast<std::size_t>(static_cast<int>(i) + shift)];
            both += x * y;
            ofA += x * x;
            ofB += y * y;
        }
        if (ofA > 0 && ofB > 0) best = std::max(best, both / std::sqrt(ofA * ofB));
    }
    return best;
}

int peak(const std::vector<int>& samples) {
    int most = 0;
    for (const int sample : samples) most = std::max(most, std::abs(sample));
    return most;
}

std::vector<int> heardPart(const SoundFile& file) {
    const auto isHeard = [](int sample) { return sample != 0; };
    const auto& all = file.samples;
    return {std::find_if(all.begin(), all.end(), isHeard), std::find_if(all.rbegin(), all.rend(), isHeard).base()};
}

TEST(SoundsOnPulse, EachSoundArrivesAsItIs) {
    const NullServer server;
    PulseSoundPlayer player;
    for (const char* name : {"chat", "join", "mention"}) {
        Recording recording;
        player.play(name);
        const std::vector<int> heard = recording.sound();
        const std::vector<int> expected = heardPart(SoundFile(QLatin1String(name)));
        ASSERT_FALSE(heard.empty()) << name;
        EXPECT_NEAR(static_cast<double>(heard.size()), static_cast<double>(expected.size()), 50) << name;
        EXPECT_GT(likeness(expected, heard), 0.99) << name;
        EXPECT_NEAR(peak(heard), peak(expected), 0.05 * peak(expected)) << name;
    }
}

/// Plays the sound until it is heard: sounds are lost while the server is still starting.
bool isHeardAfterSomeTries(PulseSoundPlayer& player) {
    Recording recording;
    for (int i = 0; i < 20; i++) {
        player.play("chat");
        if (!recording.sound(1000).empty()) return true;
    }
    return false;
}

TEST(SoundsOnPulse, AServerThatComesAgainIsUsed) {
    PulseSoundPlayer player;
    for (int i = 0; i < 2; i++) {
        const NullServer server;
        EXPECT_TRUE(isHeardAfterSomeTries(player));
    }
}

TEST(SoundsOnPulse, WhatIsAskedForTogetherIsHeardInTurn) {
    const NullServer server;
    PulseSoundPlayer player;
    Recording recording;
    player.play("chat");
    player.play("join");
    const std::vector<int> heard = recording.sound();
    EXPECT_GT(heard.size(), heardPart(SoundFile(QStringLiteral("chat"))).size() +
                                heardPart(SoundFile(QStringLiteral("join"))).size() / 2);
}

TEST(SoundsWithoutServer, NothingIsPlayedNothingIsSaidAndNothingIsWaitedFor) {
    QtMessages::toLog();
    ::testing::internal::CaptureStderr();
    ::testing::internal::CaptureStdout();
    QElapsedTimer clock;
    {
        clock.start();
        PulseSoundPlayer player;
        player.play("chat");
        player.play("no such sound");
        EXPECT_LT(clock.elapsed(), 500);
        turnUntil([] { return false; }, 500);
        player.play("join");
        turnUntil([] { return false; }, 500);
        clock.start();
    }
    EXPECT_LT(clock.elapsed(), 1000);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST(SoundsWithoutServer, AServerThatComesLaterIsUsed) {
    PulseSoundPlayer player;
    player.play("chat");
    turnUntil([] { return false; }, 200);
    const NullServer server;
    EXPECT_TRUE(isHeardAfterSomeTries(player));
}

TEST(SoundsWithHungServer, NobodyWaitsForIt) {
    ASSERT_TRUE(QDir().mkpath(QFileInfo(serverSocket()).path()));
    QLocalServer server;
    ASSERT_TRUE(server.listen(serverSocket()));
    QElapsedTimer clock;
    {
        clock.start();
        PulseSoundPlayer player;
        for (int i = 0; i < 1000; i++) player.play("chat");
        EXPECT_LT(clock.elapsed(), 1000);
        // The server has the player's connection, but never answers.
        ASSERT_TRUE(turnUntil([&] { return server.hasPendingConnections(); }));
        clock.start();
        for (int i = 0; i < 1000; i++) player.play("join");
        EXPECT_LT(clock.elapsed(), 1000);
        clock.start();
    }
    EXPECT_LT(clock.elapsed(), 600);
}

}  // namespace
