#include "Publisher.h"

#include "Base/Check.h"
#include "SigningSupport/ProgramRun.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/file.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr char madeVersion[] = "0.0.1";

void expectSuccess(const std::vector<std::string>& command) {
    const ProgramRun run = ProgramRun::of(command);
    if (run.status != 0) ADD_FAILURE() << command.front() << " ended with " << run.status << "\n" << run.errors;
}

std::vector<std::string> linesOf(const fs::path& file) {
    std::vector<std::string> lines;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

/// Whether a bundle is newer than every file that it is made of.
bool isUpToDate(const fs::path& bundle, const std::vector<std::string>& arguments) {
    std::error_code missing;
    const auto made = fs::last_write_time(bundle / "Contents/Info.plist", missing);
    if (missing) return false;
    std::vector<fs::path> parts{MAKE_BUNDLE};
    for (const std::string& argument : arguments)
        if (const std::size_t at = argument.find('='); at != std::string::npos)
            parts.emplace_back(argument.substr(at + 1));
    for (const fs::path& part : parts)
        if (fs::last_write_time(part) >= made) return false;
    return true;
}

/// The bundle of this build. The first test to ask makes it for all the others, since making one takes a while; the
/// lock makes tests that run at the same time wait for that.
fs::path bundleOfThisBuild() {
    const fs::path folder = fs::path(BUILD_FOLDER) / "update-tests";
    fs::create_directories(folder);
    const int lock = ::open((folder / "lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644);
    check(lock >= 0 && ::flock(lock, LOCK_EX) == 0, "the bundle of this build can't be locked");
    fs::path bundle = folder / "Vimble.app";
    const std::vector<std::string> arguments = linesOf(fs::path(BUILD_FOLDER) / "bundle-arguments");
    if (!isUpToDate(bundle, arguments)) {
        std::vector<std::string> command{MAKE_BUNDLE, "--version", madeVersion};
        command.insert(command.end(), arguments.begin(), arguments.end());
        command.push_back(bundle);
        expectSuccess(command);
    }
    ::close(lock);
    return bundle;
}

bool belongs(const fs::path& file, Publisher::Layout layout) {
    if (layout == Publisher::Layout::selfContained) return true;
    const std::string text = file.native();
    for (const char* each : {"Contents/Frameworks", "Contents/Resources/Licences", "Contents/Linux/qt.conf",
                             "Contents/Linux/vimble-camera", "Contents/Linux/vimble-terminal"})
        if (text.starts_with(each)) return false;
    return true;
}

/// Copies the files instead of linking them: a new link changes a file's inode, and a program that is just reading the
/// file for its seal would take it for altered.
void copyBundle(const fs::path& from, const fs::path& to, Publisher::Layout layout) {
    fs::create_directories(to.parent_path());
    fs::create_directory(to, from);
    for (const auto& entry : fs::recursive_directory_iterator(from)) {
        const fs::path place = entry.path().lexically_relative(from);
        if (!belongs(place, layout)) continue;
        if (entry.is_symlink())
            fs::copy_symlink(entry.path(), to / place);
        else if (entry.is_directory())
            fs::create_directory(to / place, entry.path());
        else
            fs::copy_file(entry.path(), to / place);
    }
}

void replaceAll(std::string& text, const std::string& old, const std::string& with) {
    for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos; at += with.size())
        text.replace(at, old.size(), with);
}

}  // namespace

Publisher::Publisher(Path folder) : folder(std::move(folder)), _releases(this->folder / "releases") {
    fs::create_directories(_releases);
}

void Publisher::makeBundle(const Path& bundle, const std::string& version, const std::string& manifestUrl,
                           Layout layout) const {
    copyBundle(bundleOfThisBuild(), bundle, layout);
    const Path list = bundle / "Contents/Info.plist";
    std::string text = textIn(list);
    replaceAll(text, std::string("<string>") + madeVersion + "<", "<string>" + version + "<");
    if (!manifestUrl.empty())
        replaceAll(text, "</dict>", "<key>UpdateKitManifestURL</key><string>" + manifestUrl + "</string></dict>");
    rewrite(list, text);
}

void Publisher::sign(const Path& bundle, const TestChain& by) const {
    const Path identity = folder / "identity.pem";
    std::ofstream(identity) << by.pem();
    expectSuccess({CODESIGN_PROGRAM, "--sign", identity, bundle});
}

void Publisher::sealAdhoc(const Path& bundle) const { expectSuccess({CODESIGN_PROGRAM, "--adhoc", bundle}); }

void Publisher::publish(const std::string& version, const Path& bundle) const {
    const std::string name = "Vimble-" + version + ".zip";
    fs::remove(_releases / name);
    // The same command as in ./release, but with weak compression, to be quick.
    expectSuccess({"/bin/sh", "-c",
                   "cd \"$1\" && find \"$2\" | LC_ALL=C sort | TZ=UTC /usr/bin/zip -1 -q -X -y \"$3\" -@", "sh",
                   bundle.parent_path(), bundle.filename(), _releases / name});
    writeManifest("{\"version\": \"" + version + "\", \"url\": \"" + name + "\"}\n");
}

void Publisher::release(const std::string& version, const std::string& manifestUrl, Layout layout) const {
    const Path bundle = folder / "built" / version / "Vimble.app";
    fs::remove_all(bundle);
    makeBundle(bundle, version, manifestUrl, layout);
    sign(bundle);
    publish(version, bundle);
}

void Publisher::writeManifest(const std::string& text) const {
    const Path beside = _releases / ".latest.json";
    std::ofstream(beside) << text;
    fs::rename(beside, manifest());
}

void Publisher::rewrite(const Path& file, const std::string& text) {
    Path beside = file;
    beside += ".new";
    std::ofstream(beside) << text;
    fs::permissions(beside, fs::status(file).permissions());
    fs::rename(beside, file);
}

std::string Publisher::textIn(const Path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string Publisher::versionOf(const Path& bundle) {
    const std::string text = textIn(bundle / "Contents/Info.plist");
    const std::string before = "<string>";
    const std::size_t key = text.find("<key>CFBundleShortVersionString</key>");
    if (key == std::string::npos) return {};
    const std::size_t begin = text.find(before, key) + before.size();
    return text.substr(begin, text.find('<', begin) - begin);
}

bool Publisher::isSealed(const Path& bundle) { return codesign({"--verify", bundle}).status == 0; }
