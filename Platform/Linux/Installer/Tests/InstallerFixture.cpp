#include "InstallerFixture.h"

#include "PlatformBundle/PropertyListBundleReader.h"
#include "PlatformBundle/RunningProcess.h"
#include "PlatformBundle/Spawn.h"
#include "PlatformCore/ServiceRegistration.h"
#include "PlatformCore/XPCInstallerClient.h"
#include "QtTestSupport/QtWait.h"
#include "SigningSupport/ProgramRun.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

void copyProgram(const char* from, const fs::path& to) {
    fs::copy_file(from, to);
    fs::permissions(to, fs::perms(0755));
}

}  // namespace

InstallerFixture::InstallerFixture() {
    // Some tests run programs in this folder as another user.
    fs::permissions(folder.path, fs::perms(0755));
    for (const auto& each : {apps, downloads, reports}) fs::create_directories(each);
    fs::permissions(reports, fs::perms(0777));
    host.bundle["CFBundleIdentifier"] = "zorvane.Vimble";
}

InstallerFixture::~InstallerFixture() {
    if (application > 0 && isApplicationRunning()) {
        ::kill(application, SIGKILL);
        ::waitpid(application, nullptr, 0);
    }
    for (const auto& entry : fs::directory_iterator(reports)) {
        const int number = std::atoi(entry.path().filename().c_str());
        // End the process only if it runs from our folder: if ours has ended, another one may have its number.
        std::error_code ignored;
        if (number > 0 && fs::read_symlink("/proc/" + std::to_string(number) + "/exe", ignored)
                              .native()
                              .starts_with(folder.path.native()))
            ::kill(number, SIGKILL);
    }
    requests.clear();
    if (letGo >= 0) ::close(letGo);
    if (!bus) return;
    const std::optional<pid_t> service = bus->processOf(serviceName);
    bus->kill();
    if (service) {
        EXPECT_TRUE(turnUntil([&] { return !isProcessRunning(*service); })) << "the service outlives its bus";
    }
    EXPECT_THAT(bus->logLines("Sanitizer"), IsEmpty()) << bus->log();
    EXPECT_THAT(bus->logLines("runtime error"), IsEmpty()) << bus->log();
}

void InstallerFixture::makeBundles() {
    makeBundle(current, "1.0.0");
    makeBundle(staged, "1.1.0");
}

void InstallerFixture::makeBundle(const Path& bundle, const std::string& version) const {
    for (const char* each : {"Linux", "Services", "Frameworks"}) fs::create_directories(bundle / "Contents" / each);
    std::ofstream(bundle / "Contents" / "Info.plist")
        << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
           "<key>CFBundleExecutable</key><string>Vimble</string>"
           "<key>CFBundleIdentifier</key><string>zorvane.Vimble</string>"
           "<key>CFBundleShortVersionString</key><string>"
        << version << "</string></dict></plist>\n";
    copyProgram(APPLICATION_PROGRAM, bundle / "Contents/Linux/Vimble");
    copyProgram(CODESIGN_PROGRAM, bundle / "Contents/Linux/vimble-codesign");
    copyProgram(INSTALLER_PROGRAM, bundle / "Contents/Services/vimble-installer");
}

void InstallerFixture::sign(const Path& bundle, const TestChain& chain) const {
    const Path identity = folder.path / "identity.pem";
    std::ofstream(identity) << chain.pem();
    const ProgramRun run = codesign({"--sign", identity, bundle});
    ASSERT_EQ(run.status, 0) << run.errors;
}

void InstallerFixture::sealAdhoc(const Path& bundle) const { ASSERT_EQ(codesign({"--adhoc", bundle}).status, 0); }

std::string InstallerFixture::version(const Path& bundle) const {
    const auto opened = PropertyListBundleReader().open(bundle);
    return opened ? opened->versionText().value_or("") : "";
}

bool InstallerFixture::isSealed(const Path& bundle) const { return codesign({"--verify", bundle}).status == 0; }

void InstallerFixture::startBus(std::optional<uid_t> user) {
    bus = std::make_unique<PrivateBus>(folder.path / "bus", user);
    client = std::make_unique<XPCInstallerClient>(host, std::nullopt, bus->address());
    ServiceRegistration::write(serviceName, current / "Contents/Services/vimble-installer", bus->dataHome(),
                               bus->connection());
    // Only their owner may read the files of the registration, and the bus may be another user's.
    if (!user) return;
    for (const auto& entry : fs::recursive_directory_iterator(bus->dataHome()))
        ASSERT_EQ(::chown(entry.path().c_str(), *user, *user), 0);
}

void InstallerFixture::startApplication(const std::string& manner, std::optional<uid_t> user) {
    SpawnRequest start;
    start.executable = current / "Contents/Linux/Vimble";
    start.arguments = {reports, manner, "a b", "", "--data-dir=x"};
    if (user) {
        start.arguments.insert(start.arguments.begin(),
                               {"--reuid=" + std::to_string(*user), "--clear-groups", start.executable});
        start.executable = "/usr/bin/setpriv";
    }
    start.environment = {{"MARK=one two", "DISPLAY=:77", "DBUS_SESSION_BUS_ADDRESS=" + bus->address()}};
    start.workingFolder = reports;
    application = spawn(start);
    ASSERT_TRUE(turnUntil([&] { return fs::exists(reports / std::to_string(application)); }));
}

void InstallerFixture::startAll(const std::string& manner) {
    makeBundles();
    sign(current, chain);
    sign(staged, chain);
    startBus();
    startApplication(manner);
}

void InstallerFixture::startAllWithSlowTool() {
    makeBundles();
    slowTool();
    sign(current, chain);
    sign(staged, chain);
    startBus();
    startApplication();
}

void InstallerFixture::slowTool() const {
    const Path tool = current / "Contents/Linux/vimble-codesign";
    fs::remove(tool);
    ASSERT_EQ(::mkfifo((folder.path / "pipe").c_str(), 0600), 0);
    std::ofstream(tool) << "#!/bin/sh\n: > '" << (folder.path / "asked").native() << "'\nread x < '"
                        << (folder.path / "pipe").native() << "'\nexec " << CODESIGN_PROGRAM << " \"$@\"\n";
    fs::permissions(tool, fs::perms(0755));
}

void InstallerFixture::waitForTool() {
    ASSERT_TRUE(turnUntil([&] { return fs::exists(folder.path / "asked"); })) << bus->log();
}

void InstallerFixture::letToolGo() {
    // Open the pipe in both directions, so that what is written here waits for a tool that opens the pipe later.
    letGo = ::open((folder.path / "pipe").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::write(letGo, "\n\n\n\n", 4), 4);
}

std::shared_ptr<InstallResult> InstallerFixture::ask(const InstallerRequest& request) {
    auto result = std::make_shared<InstallResult>();
    requests.push_back(client->install(request, [result](Outcome<Done> outcome) {
        EXPECT_FALSE(result->isOver) << "told twice";
        result->isOver = true;
        try {
            (void)outcome.take();
        } catch (const InstallerClientError& error) {
            result->error = error;
        }
    }));
    EXPECT_FALSE(result->isOver) << "told within the call";
    return result;
}

std::optional<InstallerClientError> InstallerFixture::install(const InstallerRequest& request) {
    const auto result = ask(request);
    EXPECT_TRUE(turnUntil([&] { return result->isOver; }, 60000)) << (bus ? bus->log() : "");
    return result->error;
}

bool InstallerFixture::isApplicationRunning() {
    int how = 0;
    if (!status && ::waitpid(application, &how, WNOHANG) == application) status = how;
    return !status;
}

int InstallerFixture::signalThatEndedIt() {
    EXPECT_TRUE(turnUntil([&] { return !isApplicationRunning(); }));
    return status && WIFSIGNALED(*status) ? WTERMSIG(*status) : 0;
}

std::vector<std::string> InstallerFixture::reportOfNewOne() {
    std::vector<std::string> lines;
    const bool came = turnUntil([&] {
        for (const std::string& name : namesIn(reports)) {
            if (name == std::to_string(application) || name.ends_with(".new")) continue;
            std::ifstream file(reports / name);
            for (std::string line; std::getline(file, line);) lines.push_back(line);
            return true;
        }
        return false;
    });
    EXPECT_TRUE(came) << bus->log();
    return lines;
}

void InstallerFixture::expectNothingHappened(const std::string& why) {
    EXPECT_TRUE(isApplicationRunning());
    EXPECT_THAT(namesIn(reports), ElementsAre(std::to_string(application)));
    EXPECT_THAT(namesIn(apps), ElementsAre("Vimble.app"));
    EXPECT_EQ(version(current), "1.0.0");
    const std::vector<std::string> lines = bus->logLines("UpdateKitInstaller/");
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [&](const std::string& line) { return line.find(why) != std::string::npos; }),
              1)
        << bus->log();
}

std::vector<std::string> InstallerFixture::namesIn(const Path& path) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}
