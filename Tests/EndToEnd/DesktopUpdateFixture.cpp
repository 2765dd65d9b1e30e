#include "DesktopUpdateFixture.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;
using ::testing::IsEmpty;

namespace {

/// The processes whose program file lies in a folder.
std::vector<pid_t> processesIn(const fs::path& folder) {
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const int number = std::atoi(entry.path().filename().c_str());
        std::error_code gone;
        if (number > 0 && fs::read_symlink(entry.path() / "exe", gone).native().starts_with(folder.native() + "/"))
            found.push_back(number);
    }
    return found;
}

}  // namespace

DesktopUpdateFixture::DesktopUpdateFixture() {
    world.startRelay();
    world.admit("bob");
    ann.emplace(world, "ann");
    keyring.emplace(ann->screen());
    admitAnn();
    // The name goes to everybody on the list, so Ann must be a member by now.
    bob = world.client("bob");
    bob->lineWith("list of ");
    bob->write("/name Bob\n");
    fs::create_directories(programs);
}

void DesktopUpdateFixture::admitAnn() {
    Process::Start start = withKeyring(world.clientStart("ann", {"--public-key"}));
    for (const auto& [name, value] : ann->screen().environment()) start.environment[name] = value;
    std::string key, errors;
    EXPECT_EQ(world.run(start, &key, &errors), 0) << errors;
    annKey = key.substr(0, key.find('\n'));
    world.admitKey(annKey);
}

Process::Start DesktopUpdateFixture::withKeyring(Process::Start start) const {
    std::erase(start.command, "--secret-file");
    std::erase(start.command, world.secretFile("ann").string());
    start.environment.erase("VIMBLE_SECRET_PASSPHRASE");
    return start;
}

DesktopUpdateFixture::~DesktopUpdateFixture() {
    if (heldTool >= 0) ::close(heldTool);
    // The installer's children are no children of this process, so nothing else ends them.
    for (const pid_t each : processesIn(world.folder.path)) ::kill(each, SIGKILL);
    EXPECT_THAT(lines(ann->screen().busLog(), "Sanitizer"), IsEmpty()) << ann->screen().busLog();
    EXPECT_THAT(lines(ann->screen().busLog(), "runtime error"), IsEmpty()) << ann->screen().busLog();
}

void DesktopUpdateFixture::install(const std::string& version, const std::string& manifestUrl, Layout layout) const {
    publisher.makeBundle(bundle(), version, manifestUrl, layout);
    publisher.sign(bundle());
}

void DesktopUpdateFixture::installWithHeldTool(const std::string& version, const std::string& manifestUrl) const {
    publisher.makeBundle(bundle(), version, manifestUrl);
    const std::string pipe = "'" + pipeOfTool().native() + "'";
    Publisher::rewrite(bundle() / "Contents/Linux/vimble-codesign",
                       "#!/bin/sh\n[ ! -p " + pipe + " ] || read x < " + pipe + "\nexec " CODESIGN_PROGRAM " \"$@\"\n");
    publisher.sign(bundle());
}

void DesktopUpdateFixture::holdTool() const { ASSERT_EQ(::mkfifo(pipeOfTool().c_str(), 0600), 0); }

bool DesktopUpdateFixture::isToolHeld() {
    return ann->comesTrue([&] {
        // The pipe can't be opened for writing before the tool waits at its other end.
        if (heldTool < 0) heldTool = ::open(pipeOfTool().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        return heldTool >= 0;
    });
}

void DesktopUpdateFixture::letToolGo() {
    fs::remove(pipeOfTool());
    // With the pipe closed, the tool reads the end of it and goes on.
    ::close(std::exchange(heldTool, -1));
}

Process::Start DesktopUpdateFixture::bundleStart() const {
    Process::Start start = withKeyring(ann->programStart({"--server", world.server()}));
    start.command.front() = bundle() / "Contents/Linux/Vimble";
    return start;
}

void DesktopUpdateFixture::start() {
    ann->start(bundleStart());
    ann->sees("People", "Bob, online");
}

void DesktopUpdateFixture::checkForUpdates() {
    ann->activate("People");
    ann->opensMenu([&] { ann->press("alt+v"); });
    ann->press("u");
}

void DesktopUpdateFixture::seesBar(const std::string& version) {
    ann->sees("People", "v" + version);
    ann->sees("People", "Update", "push button");
}

bool DesktopUpdateFixture::hasBar() { return ann->find("People", "Update", "push button").has_value(); }

std::vector<pid_t> DesktopUpdateFixture::running() const {
    const Path program = bundle() / "Contents/Linux/Vimble";
    std::vector<pid_t> found;
    for (const pid_t each : processesIn(bundle())) {
        std::error_code gone;
        if (fs::read_symlink("/proc/" + std::to_string(each) + "/exe", gone) == program) found.push_back(each);
    }
    return found;
}

pid_t DesktopUpdateFixture::successorOf(pid_t old) {
    pid_t found = -1;
    const bool came = ann->comesTrue([&] {
        const std::vector<pid_t> now = running();
        if (now.size() != 1 || now.front() == old) return false;
        found = now.front();
        return true;
    });
    EXPECT_TRUE(came) << "no new process in the bundle\n" << ann->program().errors() << ann->screen().busLog();
    return found;
}

std::vector<std::string> DesktopUpdateFixture::argumentsOf(pid_t process) {
    std::vector<std::string> words;
    std::istringstream text(Publisher::textIn("/proc/" + std::to_string(process) + "/cmdline"));
    for (std::string word; std::getline(text, word, '\0');) words.push_back(word);
    return words;
}

bool DesktopUpdateFixture::hasEnded(pid_t process) {
    // The state follows the name, which stands in parentheses; Z is a process that nobody has waited for.
    const std::string status = Publisher::textIn("/proc/" + std::to_string(process) + "/stat");
    return status.empty() || status.find(") Z ") != std::string::npos;
}

void DesktopUpdateFixture::quitSuccessor(pid_t process) {
    ann->activate("People");
    ann->press("ctrl+q");
    EXPECT_TRUE(ann->comesTrue([&] { return hasEnded(process); })) << ann->screen().busLog();
}

std::vector<std::string> DesktopUpdateFixture::lines(const std::string& log, const std::string& part) {
    std::vector<std::string> found;
    std::istringstream text(log);
    for (std::string line; std::getline(text, line);)
        if (line.find(part) != std::string::npos) found.push_back(line);
    return found;
}

void DesktopUpdateFixture::expectInOrder(const std::string& log, const std::vector<std::string>& parts) {
    std::size_t at = 0;
    for (const std::string& part : parts) {
        const std::size_t found = log.find(part, at);
        if (found == std::string::npos) {
            ADD_FAILURE() << "\"" << part << "\" is missing, or comes too early, in\n" << log;
            return;
        }
        at = found + part.size();
    }
}

std::vector<std::string> DesktopUpdateFixture::namesIn(const Path& folder) const {
    std::vector<std::string> names;
    if (!fs::exists(folder)) return names;
    for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

DesktopUpdateFixture::Path DesktopUpdateFixture::stagingFolder() const {
    return Path(world.environment.at("XDG_CACHE_HOME")) / "zorvane.Vimble" / "tmp" / "UpdateKit";
}

std::vector<std::string> DesktopUpdateFixture::staged() const { return namesIn(stagingFolder()); }
