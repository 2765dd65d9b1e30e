// Folders that can't be written to, disks that are full, and a program whose own files are replaced.

#include "Base/FileDescriptor.h"
#include "InstallerFixture.h"
#include "QtTestSupport/QtWait.h"
#include "SigningSupport/ProgramRun.h"

#include <QDBusMessage>

#include <algorithm>
#include <array>
#include <climits>
#include <fstream>
#include <map>
#include <sched.h>
#include <sstream>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::IsEmpty;

constexpr const char* unwritable =
    "UpdateKit couldn't replace the app in its current location. Move it to a writable location such as "
    "/Applications or your home folder, then try again.";
constexpr const char* full =
    "There isn't enough free disk space to install the update. Free up some space, then try again.";

class InstallerPlaceTest : public InstallerFixture {
public:
    ~InstallerPlaceTest() override {
        // Detach the volume: as long as something runs from there it can't be removed, but nobody sees it any more.
        if (!mounted.empty()) ::umount2(mounted.c_str(), MNT_DETACH);
    }

protected:
    /// Mounts a volume that only this process and those that it starts can see.
    /// @return false if this user may not
    bool mountAt(const Path& place, const char* options) {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", place.c_str(), "tmpfs", 0, options) != 0)
            return false;
        mounted = place;
        return true;
    }

    void expectUserIsTold(const std::string& text) {
        const auto error = install(request());
        ASSERT_TRUE(error) << "installed";
        EXPECT_EQ(*error, InstallerClientError::installationFailed(text, true));
        expectNothingHappened(text);
        EXPECT_EQ(version(staged), "1.1.0");
    }

    Path mounted;
};

TEST_F(InstallerPlaceTest, AFolderOfSomebodyElseIsToldToTheUserWhileTheApplicationRuns) {
    if (::geteuid() != 0) GTEST_SKIP() << "only the administrator may start a program as somebody else";
    makeBundles();
    sign(current, chain);
    sign(staged, chain);
    ASSERT_EQ(::chown(downloads.c_str(), otherUser, otherUser), 0);
    for (const auto& entry : fs::recursive_directory_iterator(staged))
        ASSERT_EQ(::lchown(entry.path().c_str(), otherUser, otherUser), 0);
    ASSERT_EQ(::chown(staged.c_str(), otherUser, otherUser), 0);
    startBus(otherUser);
    startApplication("polite", otherUser);
    expectUserIsTold(unwritable);
}

TEST_F(InstallerPlaceTest, AFullDiskIsToldToTheUserWhileTheApplicationRuns) {
    // Make a volume with room for one bundle, and a little more.
    makeBundles();
    std::uintmax_t size = 0;
    for (const auto& entry : fs::recursive_directory_iterator(current))
        if (entry.is_regular_file()) size += entry.file_size();
    fs::remove_all(current);
    if (!mountAt(apps, ("size=" + std::to_string(size * 3 / 2)).c_str())) GTEST_SKIP() << "this user may not mount";
    makeBundle(current, "1.0.0");
    sign(current, chain);
    sign(staged, chain);
    startBus();
    startApplication();
    expectUserIsTold(full);
}

TEST_F(InstallerPlaceTest, AReadOnlyVolumeIsToldToTheUserWhileTheApplicationRuns) {
    if (!mountAt(apps, "size=100m")) GTEST_SKIP() << "this user may not mount";
    makeBundles();
    sign(current, chain);
    sign(staged, chain);
    startBus();
    startApplication();
    ASSERT_EQ(::mount("none", apps.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    expectUserIsTold(unwritable);
}

TEST_F(InstallerPlaceTest, AnUpdateOnAnotherVolumeIsCopied) {
    if (!mountAt(apps, "size=100m")) GTEST_SKIP() << "this user may not mount";
    startAll();
    EXPECT_EQ(install(request()), std::nullopt) << bus->log();
    EXPECT_EQ(version(current), "1.1.0");
    EXPECT_TRUE(isSealed(current));
    EXPECT_THAT(namesIn(downloads), IsEmpty());
    (void)reportOfNewOne();
}

/// Watches which files below a folder are opened, wherever that is moved to meanwhile, and what is moved into another
/// folder.
class OpenedFiles {
public:
    OpenedFiles(const fs::path& bundle, const fs::path& place) : queue(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        watch(bundle, IN_OPEN);
        for (const auto& entry : fs::recursive_directory_iterator(bundle))
            if (entry.is_directory()) watch(entry.path(), IN_OPEN);
        watch(place, IN_MOVED_TO);
    }

    /// What happened since, in order: "moved NAME", or the name of a file that was opened.
    std::vector<std::string> events() {
        std::vector<std::string> result;
        alignas(inotify_event) std::array<char, 64 * (sizeof(inotify_event) + NAME_MAX + 1)> buffer;
        for (ssize_t count; (count = ::read(queue.get(), buffer.data(), buffer.size())) > 0;)
            for (ssize_t i = 0; i < count;) {
                const auto* const event = reinterpret_cast<const inotify_event*>(buffer.data() + i);
                const std::string name = event->len > 0 ? event->name : "";
                if ((event->mask & IN_MOVED_TO) != 0) result.push_back("moved " + name);
                if ((event->mask & IN_OPEN) != 0 && (event->mask & IN_ISDIR) == 0 && !name.empty())
                    result.push_back((folders[event->wd] / name).native());
                i += static_cast<ssize_t>(sizeof *event + event->len);
            }
        return result;
    }

private:
    void watch(const fs::path& folder, std::uint32_t mask) {
        const int number = ::inotify_add_watch(queue.get(), folder.c_str(), mask);
        ASSERT_GE(number, 0);
        folders[number] = folder.filename();
    }

    const FileDescriptor queue;
    std::map<int, fs::path> folders;
};

TEST_F(InstallerPlaceTest, OnceTheBundlesAreSwappedTheServiceLoadsNothingFromThem) {
    makeBundles();
    // As in a release, the libraries that the service needs lie in both bundles, under the same names.
    std::vector<std::string> libraries;
    const ProgramRun dependencies = ProgramRun::of({"/usr/bin/ldd", INSTALLER_PROGRAM});
    std::istringstream lines(dependencies.output);
    for (std::string name, arrow, path, line; std::getline(lines, line);) {
        std::istringstream words(line);
        if (!(words >> name >> arrow >> path) || !path.starts_with("/")) continue;
        // Leave out the C library and the sanitizers, which have to fit the system's loader.
        if (name.starts_with("libc.") || name.starts_with("libm.") || name.starts_with("libasan") ||
            name.starts_with("libubsan") || name.starts_with("ld-"))
            continue;
        libraries.push_back(name);
        for (const auto& bundle : {current, staged}) fs::copy_file(path, bundle / "Contents/Frameworks" / name);
    }
    EXPECT_THAT(libraries, Contains(testing::StartsWith("libQt6DBus.so")));
    sign(current, chain);
    sign(staged, chain);
    startBus();
    // This has the same effect as the search path in a released program.
    std::ofstream(bus->dataHome() / "dbus-1/services" / (std::string(serviceName) + ".service"))
        << "[D-BUS Service]\nName=" << serviceName
        << "\nExec=/usr/bin/env LD_LIBRARY_PATH=" << (current / "Contents/Frameworks").native() << " "
        << (current / "Contents/Services/vimble-installer").native() << "\n";
    bus->connection().call(
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ReloadConfig")));
    startApplication();

    // Start the service by a request that it refuses.
    InstallerRequest nothing = request();
    nothing.stagedApp = current;
    EXPECT_TRUE(install(nothing));
    const auto service = bus->processOf(serviceName);
    ASSERT_TRUE(service);
    std::ifstream maps("/proc/" + std::to_string(*service) + "/maps");
    const std::string mapped(std::istreambuf_iterator<char>(maps), {});
    EXPECT_NE(mapped.find((current / "Contents/Frameworks/libQt6DBus.so").native()), std::string::npos)
        << "it does not run with the bundle's libraries";

    OpenedFiles opened(staged, apps);
    EXPECT_EQ(install(request()), std::nullopt) << bus->log();
    EXPECT_EQ(bus->processOf(serviceName), std::nullopt);
    (void)reportOfNewOne();
    EXPECT_TRUE(turnUntil([&] { return bus->logLines("UpdateKitInstaller/service: replaced").size() == 1; }));
    const std::vector<std::string> events = opened.events();
    const auto swapped = std::find(events.begin(), events.end(), "moved Vimble.app");
    ASSERT_NE(swapped, events.end());
    EXPECT_THAT(std::vector<std::string>(events.begin(), swapped),
                Contains(testing::StartsWith("Frameworks/libQt6DBus")))
        << "the watch sees nothing";
    // The service itself opens only what it needs to start the application; that one opens its own files too.
    for (auto event = swapped + 1; event != events.end(); ++event)
        EXPECT_THAT(*event, testing::AnyOf("Linux/Vimble", "Contents/Info.plist"));
}

}  // namespace
