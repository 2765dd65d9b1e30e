// Disks without room, folders that can't be written to, and programs that end in the midst of an update.

#include "Base/FileDescriptor.h"
#include "PlatformBundle/RunningProcess.h"
#include "QtTestSupport/QtWait.h"
#include "UpdateAppFixture.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <csignal>
#include <fstream>
#include <random>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

/// The same bytes each time, which can't be compressed.
std::string incompressible(std::size_t size) {
    std::mt19937 source;  // NOLINT(cert-msc51-cpp): the seed is to be the same
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(source() & 0xFF); });
    return bytes;
}

class InterruptedUpdateTest : public UpdateAppFixture {
public:
    ~InterruptedUpdateTest() override {
        if (isMounted) ::umount2(temporary.c_str(), MNT_DETACH);
    }

protected:
    /// Gives the temporary folder a volume of its own, for this process and those that it starts.
    /// @return false if this user may not
    bool mountTemporary(const char* options) {
        isMounted = ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    ::mount("none", temporary.c_str(), "tmpfs", 0, options) == 0;
        return isMounted;
    }

    void expectFailed(const std::string& failure, const std::string& why) {
        const auto lines = check();
        EXPECT_THAT(lines.back(), AllOf(StartsWith("failed " + failure))) << testing::PrintToString(lines);
        EXPECT_THAT(lines, testing::Contains(AllOf(StartsWith("error UpdateKit: "), HasSubstr(why))));
        expectUntouched();
    }

    /// Kills the application in the midst of an update, and expects that the next start clears away what it left.
    void killAndStartAgain() {
        ::kill(application, SIGKILL);
        EXPECT_EQ(signalThatEndedIt(), SIGKILL);
        EXPECT_EQ(version(current), "1.0.0");
        EXPECT_TRUE(isSealed(current));
        EXPECT_THAT(namesIn(apps), ElementsAre("Vimble.app"));
        EXPECT_THAT(stagingFolders(), SizeIs(1)) << "it was not in the midst of it";
        startUpdateApp();
        EXPECT_TRUE(turnUntil([&] { return stagingFolders().empty(); })) << "what it left is still there";
        expectUntouched();
    }

    /// An archive that takes a while to be unpacked: "last" comes last, beside the folder Contents.
    QByteArray longArchive() const {
        const Path file = folder.path / "long.zip";
        struct archive* writer = archive_write_new();
        archive_write_set_format_zip(writer);
        EXPECT_EQ(archive_write_open_filename(writer, file.c_str()), ARCHIVE_OK);
        const auto add = [writer](const std::string& name) {
            archive_entry* entry = archive_entry_new();
            archive_entry_set_pathname(entry, name.c_str());
            archive_entry_set_mode(entry, AE_IFREG | 0644);
            archive_entry_set_size(entry, 0);
            EXPECT_EQ(archive_write_header(writer, entry), ARCHIVE_OK);
            archive_entry_free(entry);
        };
        for (int i = 0; i < 12'000; ++i) add("Vimble.app/Contents/f" + std::to_string(i));
        add("Vimble.app/last");
        archive_write_close(writer);
        archive_write_free(writer);
        std::ifstream stream(file, std::ios::binary);
        return QByteArray::fromStdString({std::istreambuf_iterator<char>(stream), {}});
    }
    bool isUnpacking() {
        const auto folders = stagingFolders();
        return folders.size() == 1 && fs::exists(folders[0] / "extracted/Vimble.app/Contents");
    }

    bool isMounted = false;
};

// ---- no room, no permission

TEST_F(InterruptedUpdateTest, ADiskThatIsFullWhileItDownloads) {
    if (!mountTemporary("size=64k")) GTEST_SKIP() << "this user may not mount";
    start();
    const Path bundle = signedBundle("1.1.0");
    std::ofstream(bundle / "Contents/noise") << incompressible(200'000);
    publish("1.1.0", zipped(bundle));
    expectFailed("download: Failed to download update archive: ", "No space left on device");
}

TEST_F(InterruptedUpdateTest, ADiskThatIsFullWhileItUnpacks) {
    if (!mountTemporary("size=100k")) GTEST_SKIP() << "this user may not mount";
    start();
    const Path bundle = signedBundle("1.1.0");
    std::ofstream(bundle / "Contents/zeros") << std::string(200'000, '\0');
    std::ofstream(bundle / "Contents/noise") << incompressible(20'000);
    publish("1.1.0", zipped(bundle));
    expectFailed("extraction: Failed to extract update archive", "could not be written: No space left on device");
}

TEST_F(InterruptedUpdateTest, AVolumeThatIsReadOnly) {
    if (!mountTemporary("size=10m")) GTEST_SKIP() << "this user may not mount";
    start();
    publish("1.1.0", zipped(signedBundle("1.1.0")));
    ASSERT_EQ(::mount("none", temporary.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    expectFailed("unknown: ", "Read-only file system");
    ASSERT_EQ(::mount("none", temporary.c_str(), nullptr, MS_REMOUNT, nullptr), 0);
    EXPECT_EQ(check().back(), "ready 1.1.0");
}

TEST_F(InterruptedUpdateTest, AFolderThatMayNotBeWrittenTo) {
    if (::geteuid() != 0) GTEST_SKIP() << "only the administrator may start a program as somebody else";
    makeCurrent();
    startUpdateApp(otherUser);
    publish("1.1.0", zipped(signedBundle("1.1.0")));
    expectFailed("unknown: ", "Permission denied");
    // It fails in the same way one step further on, when the folder is there.
    fs::create_directory(temporary / "UpdateKit");
    expectFailed("unknown: ", "Permission denied");
    ASSERT_EQ(::chown((temporary / "UpdateKit").c_str(), otherUser, otherUser), 0);
    EXPECT_EQ(check().back(), "ready 1.1.0");
}

// ---- the application is killed

TEST_F(InterruptedUpdateTest, KilledWhileItDownloads) {
    start();
    publish("1.1.0", {});
    answers["/update.zip"] = [](QTcpSocket& client, const QByteArray&) {
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\nPK");
    };
    tell("check");
    ASSERT_TRUE(turnUntil([&] {
        const auto folders = stagingFolders();
        return folders.size() == 1 && fs::exists(folders[0] / "update.zip");
    }));
    killAndStartAgain();
}

TEST_F(InterruptedUpdateTest, KilledWhileItUnpacks) {
    start();
    publish("1.1.0", longArchive());
    tell("check");
    ASSERT_TRUE(turnUntil([&] { return isUnpacking(); }));
    killAndStartAgain();
}

TEST_F(InterruptedUpdateTest, KilledWhileItValidates) {
    makeBundle(current, "1.0.0");
    gateTool();
    start();
    publish("1.1.0", zipped(signedBundle("1.1.0")));
    holdTool();
    tell("check");
    ASSERT_TRUE(turnUntil([&] { return isToolAsked(); }));
    killAndStartAgain();
    releaseTool();
}

TEST_F(InterruptedUpdateTest, KilledWithAnUpdateInHand) {
    start();
    stageUpdate();
    killAndStartAgain();
    EXPECT_EQ(check().back(), "ready 1.1.0");
}

TEST_F(InterruptedUpdateTest, KilledOnceTheServiceIsAskedItComesBackAsTheNewOne) {
    makeBundle(current, "1.0.0");
    gateTool();
    start();
    stageUpdate();
    holdTool();
    tell("install");
    ASSERT_TRUE(turnUntil([&] { return isToolAsked(); }));
    ::kill(application, SIGKILL);
    EXPECT_EQ(signalThatEndedIt(), SIGKILL);
    EXPECT_EQ(version(current), "1.0.0");
    releaseTool();
    // The service does what was asked for, even if nobody waits for it.
    EXPECT_TRUE(turnUntil([&] { return bus->logLines("UpdateKitInstaller/service: replaced").size() == 1; }));
    EXPECT_EQ(version(current), "1.1.0");
    EXPECT_TRUE(isSealed(current));
    EXPECT_THAT(namesIn(apps), ElementsAre("Vimble.app"));
}

// ---- the application is quit

TEST_F(InterruptedUpdateTest, QuitWhileItUnpacksItEndsAtOnceAndLeavesNothing) {
    start();
    publish("1.1.0", longArchive());
    tell("check");
    ASSERT_TRUE(turnUntil([&] { return isUnpacking(); }));
    const FileDescriptor watch(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    ASSERT_GE(::inotify_add_watch(watch.get(), stagedBundle().c_str(), IN_CREATE), 0);
    tell("quit");
    EXPECT_EQ(linesUntil("ended").back(), "ended");
    std::string events(4096, '\0');
    events.resize(static_cast<std::size_t>(std::max(ssize_t(0), ::read(watch.get(), events.data(), events.size()))));
    EXPECT_THAT(events, testing::Not(HasSubstr("last"))) << "it went on to the end";
    EXPECT_THAT(stagingFolders(), IsEmpty());
}

TEST_F(InterruptedUpdateTest, QuitWhileTheToolHangsItEndsAtOnceAndLeavesNothing) {
    makeBundle(current, "1.0.0");
    gateTool();
    start();
    publish("1.1.0", zipped(signedBundle("1.1.0")));
    holdTool();
    tell("check");
    ASSERT_TRUE(turnUntil([&] { return isToolAsked(); }));
    tell("quit");
    // The tool is never let go, so an application that waited for it would wait until the tool's time-out.
    EXPECT_EQ(linesUntil("ended").back(), "ended");
    EXPECT_THAT(stagingFolders(), IsEmpty());
    EXPECT_TRUE(turnUntil([&] { return !isApplicationRunning(); }));
}

// ---- several at once, and a service that hangs

TEST_F(InterruptedUpdateTest, OfTwoApplicationsThatAskAtOnceOneIsReplaced) {
    makeBundle(current, "1.0.0");
    gateTool();
    makeCurrent();
    startUpdateApp();
    stageUpdate();
    const pid_t first = application;
    holdTool();
    tell("install");
    ASSERT_TRUE(turnUntil([&] { return isToolAsked(); }));
    std::filesystem::remove(folder.path / "gate");
    startUpdateApp();
    publish("1.1.0", zipped(signedBundle("1.1.0")));
    ASSERT_EQ(check().back(), "ready 1.1.0");
    EXPECT_THAT(stagingFolders(), SizeIs(2));
    tell("install");
    EXPECT_EQ(linesUntil("failed ").back(), "failed installation: Another update is being installed");
    EXPECT_TRUE(isProcessRunning(first));
    letToolGo();
    EXPECT_TRUE(turnUntil([&] { return bus->logLines("UpdateKitInstaller/service: replaced").size() == 1; }))
        << bus->log();
    EXPECT_EQ(version(current), "1.1.0");
    EXPECT_TRUE(isSealed(current));
    EXPECT_THAT(namesIn(apps), ElementsAre("Vimble.app"));
    EXPECT_TRUE(isApplicationRunning()) << "the other one goes on";
    EXPECT_TRUE(turnUntil([&] { return ::waitpid(first, nullptr, WNOHANG) == first; }));
    // The application runs from a bundle that is no longer there. Its request is refused, and it still goes on.
    tell("install");
    EXPECT_THAT(linesUntil("failed ").back(), StartsWith("failed installation: "));
    EXPECT_TRUE(isApplicationRunning());
    EXPECT_TRUE(isSealed(current));
}

TEST_F(InterruptedUpdateTest, AServiceThatHangsIsGivenUpAndNeverInstallsTwice) {
    makeBundle(current, "1.0.0");
    gateTool();
    makeCurrent();
    startUpdateApp({}, 1000);
    stageUpdate();
    holdTool();
    tell("install");
    ASSERT_TRUE(turnUntil([&] { return isToolAsked(); }));
    const auto service = bus->processOf(serviceName);
    ASSERT_TRUE(service);
    const std::string late = "failed installation: Installation failed: The installer service did not answer in time";
    EXPECT_EQ(linesUntil("failed ").back(), late);
    // While the service is at work, it says so.
    tell("install");
    EXPECT_EQ(linesUntil("failed ").back(), "failed installation: Another update is being installed");
    // While the service is stopped, it says nothing.
    ::kill(*service, SIGSTOP);
    tell("install");
    EXPECT_EQ(linesUntil("failed ").back(), late);
    EXPECT_TRUE(isApplicationRunning());
    EXPECT_EQ(version(current), "1.0.0");
    EXPECT_TRUE(fs::exists(stagedBundle())) << "the service may be about to take it";
    ::kill(*service, SIGCONT);
    releaseTool();
    EXPECT_EQ(signalThatEndedIt(), SIGTERM);
    EXPECT_TRUE(turnUntil([&] { return !bus->processOf(serviceName); }));
    EXPECT_THAT(bus->logLines("UpdateKitInstaller/service: replacing"), SizeIs(1)) << bus->log();
    EXPECT_THAT(bus->logLines("UpdateKitInstaller/service: replaced"), SizeIs(1)) << bus->log();
    EXPECT_EQ(version(current), "1.1.0");
    EXPECT_TRUE(isSealed(current));
}

}  // namespace
