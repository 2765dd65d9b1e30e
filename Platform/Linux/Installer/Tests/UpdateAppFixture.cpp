#include "UpdateAppFixture.h"

#include "PlatformBundle/Spawn.h"
#include "QtTestSupport/QtWait.h"
#include "SigningSupport/ProgramRun.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

UpdateAppFixture::UpdateAppFixture() {
    fs::create_directories(temporary);
    fs::create_directories(making);
}

UpdateAppFixture::~UpdateAppFixture() {
    if (commands >= 0) ::close(commands);
}

void UpdateAppFixture::makeCurrent() {
    if (!fs::exists(current)) makeBundle(current, "1.0.0");
    fs::copy_file(UPDATE_PROGRAM, current / "Contents/Linux/Vimble", fs::copy_options::overwrite_existing);
    sign(current, chain);
    startBus();
}

pid_t UpdateAppFixture::startUpdateApp(std::optional<uid_t> user, int installerMs) {
    std::array<int, 2> ends;
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    SpawnRequest start;
    start.executable = current / "Contents/Linux/Vimble";
    start.arguments = {reports, server.url(), temporary, std::to_string(installerMs)};
    if (user) {
        start.arguments.insert(start.arguments.begin(),
                               {"--reuid=" + std::to_string(*user), "--clear-groups", start.executable});
        start.executable = "/usr/bin/setpriv";
    }
    start.environment = {{"DBUS_SESSION_BUS_ADDRESS=" + bus->address()}};
    start.workingFolder = "/";
    start.input = ends[0];
    application = spawn(start);
    status.reset();
    ::close(ends[0]);
    if (commands >= 0) ::close(commands);
    commands = ends[1];
    linesRead = 0;
    EXPECT_TRUE(turnUntil([&] { return fs::exists(reports / std::to_string(application)); }));
    return application;
}

void UpdateAppFixture::tell(const std::string& command) const {
    const std::string line = command + "\n";
    ASSERT_EQ(::write(commands, line.data(), line.size()), static_cast<ssize_t>(line.size()));
}

std::vector<std::string> UpdateAppFixture::newLines() {
    std::ifstream file(reports / std::to_string(application));
    std::vector<std::string> lines;
    std::size_t count = 0;
    for (std::string line; std::getline(file, line) && !file.eof(); ++count)
        if (count >= linesRead) lines.push_back(line);
    linesRead = std::max(linesRead, count);
    for (const auto& line : lines) EXPECT_FALSE(line.starts_with("not one line")) << line;
    return lines;
}

std::vector<std::string> UpdateAppFixture::linesUntil(const std::string& beginning) {
    std::vector<std::string> lines;
    const bool came = turnUntil(
        [&] {
            for (const auto& line : newLines()) lines.push_back(line);
            return std::ranges::any_of(lines, [&](const auto& line) { return line.starts_with(beginning); });
        },
        60000);
    EXPECT_TRUE(came) << beginning << "\n" << testing::PrintToString(lines);
    return lines;
}

std::vector<std::string> UpdateAppFixture::check() {
    tell("check");
    std::vector<std::string> lines;
    const bool came = turnUntil(
        [&] {
            for (const auto& line : newLines()) lines.push_back(line);
            return !lines.empty() && (lines.back().starts_with("ready ") || lines.back().starts_with("failed ") ||
                                      lines.back().starts_with("none: "));
        },
        60000);
    EXPECT_TRUE(came) << testing::PrintToString(lines);
    if (lines.empty()) lines.emplace_back();
    return lines;
}

void UpdateAppFixture::makeLightBundle(const Path& bundle, const std::string& version) const {
    fs::create_directories(bundle / "Contents/Linux");
    std::ofstream(bundle / "Contents/Info.plist")
        << "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>Vimble</string>"
           "<key>CFBundleIdentifier</key><string>zorvane.Vimble</string>"
           "<key>CFBundleShortVersionString</key><string>"
        << version << "</string></dict></plist>\n";
    std::ofstream(bundle / "Contents/Linux/Vimble") << "#!/bin/sh\nexec sleep 300\n";
    fs::permissions(bundle / "Contents/Linux/Vimble", fs::perms(0755));
    fs::create_symlink("Linux/Vimble", bundle / "Contents/Program");
}

UpdateAppFixture::Path UpdateAppFixture::signedBundle(const std::string& version) {
    const Path bundle = making / "Vimble.app";
    fs::remove_all(bundle);
    makeLightBundle(bundle, version);
    sign(bundle, chain);
    return bundle;
}

QByteArray UpdateAppFixture::zipped(const Path& bundle) const {
    const Path file = folder.path / "made.zip";
    fs::remove(file);
    const ProgramRun zip = ProgramRun::of({"/bin/sh", "-c", R"(cd "$1" && exec zip -qry -1 "$2" "$3")", "sh",
                                           bundle.parent_path().native(), file.native(), bundle.filename().native()});
    EXPECT_EQ(zip.status, 0) << zip.errors;
    std::ifstream stream(file, std::ios::binary);
    return QByteArray::fromStdString({std::istreambuf_iterator<char>(stream), {}});
}

void UpdateAppFixture::publish(const std::string& version, const QByteArray& archive) {
    answers["/latest.json"] = AnswerServer::saying(
        "200 OK", QByteArray::fromStdString(R"({"version":")" + version + R"(","url":"update.zip"})"));
    answers["/update.zip"] = AnswerServer::saying("200 OK", archive);
}

void UpdateAppFixture::stageUpdate() {
    publish("1.1.0", zipped(signedBundle("1.1.0")));
    ASSERT_EQ(check().back(), "ready 1.1.0");
    ASSERT_TRUE(fs::exists(stagedBundle()));
}

void UpdateAppFixture::expectUntouched() {
    EXPECT_TRUE(isApplicationRunning());
    EXPECT_THAT(namesIn(apps), ElementsAre("Vimble.app"));
    EXPECT_EQ(version(current), "1.0.0");
    EXPECT_TRUE(isSealed(current));
    EXPECT_THAT(stagingFolders(), IsEmpty());
    EXPECT_THAT(namesIn(work), ElementsAre("tmp"));
    EXPECT_THAT(namesIn(temporary), testing::AnyOf(IsEmpty(), ElementsAre("UpdateKit")));
}

std::vector<UpdateAppFixture::Path> UpdateAppFixture::stagingFolders() const {
    std::vector<Path> paths;
    if (!fs::exists(temporary / "UpdateKit")) return paths;
    for (const auto& each : fs::directory_iterator(temporary / "UpdateKit")) paths.push_back(each.path());
    return paths;
}

UpdateAppFixture::Path UpdateAppFixture::stagedBundle() const {
    const auto folders = stagingFolders();
    return folders.size() == 1 ? folders.front() / "extracted/Vimble.app" : Path();
}

void UpdateAppFixture::gateTool() const {
    const Path tool = current / "Contents/Linux/vimble-codesign";
    fs::remove(tool);
    const auto at = [this](const char* name) { return "'" + (folder.path / name).native() + "'"; };
    ASSERT_EQ(::mkfifo((folder.path / "pipe").c_str(), 0600), 0);
    std::ofstream(tool) << "#!/bin/sh\nif [ -e " << at("gate") << " ]; then : > " << at("asked") << "; read x < "
                        << at("pipe") << "; fi\nexec " << CODESIGN_PROGRAM << " \"$@\"\n";
    fs::permissions(tool, fs::perms(0755));
}

void UpdateAppFixture::holdTool() const { std::ofstream(folder.path / "gate") << ""; }

void UpdateAppFixture::releaseTool() {
    std::filesystem::remove(folder.path / "gate");
    letToolGo();
}

void UpdateAppFixture::answer(QTcpSocket& client, const QByteArray& request) {
    const QList<QByteArray> words = request.split(' ');
    const auto found = answers.find(words.value(1).toStdString());
    if (found == answers.end()) return AnswerServer::saying("404 Not Found", "nothing here")(client, request);
    found->second(client, request);
}
