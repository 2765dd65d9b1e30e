// An application for tests of its replacement. It writes into a file how it was started, and waits to be ended.
//
// Arguments: the folder for that file, "polite" or "stubborn" (towards SIGTERM), and whatever else. A stubborn one
// notes in FOLDER.asked-to-end that it was asked.

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

std::string versionIn(const fs::path& propertyList) {
    std::ifstream file(propertyList);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const std::string before = "<key>CFBundleShortVersionString</key><string>";
    const std::size_t begin = text.find(before);
    if (begin == std::string::npos) return "?";
    const std::size_t value = begin + before.size();
    return text.substr(value, text.find('<', value) - value);
}

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "-";
}

std::string note;

void takeNote(int) { ::close(::open(note.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)); }

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) return 2;
    note = std::string(arguments[1]) + ".asked-to-end";
    if (std::string(arguments[2]) == "stubborn") std::signal(SIGTERM, takeNote);
    // End after a while, so that this process does not stay if the test dies.
    alarm(300);
    const fs::path program = fs::read_symlink("/proc/self/exe");
    const fs::path report = fs::path(arguments[1]) / std::to_string(getpid());
    const fs::path unfinished = report.native() + ".new";
    {
        std::ofstream file(unfinished);
        file << "version " << versionIn(program.parent_path().parent_path() / "Info.plist") << '\n'
             << "program " << program.native() << '\n'
             << "session " << (getsid(0) == getpid() ? "own" : "of another") << '\n'
             << "folder " << fs::current_path().native() << '\n'
             << "mark " << variable("MARK") << '\n'
             << "display " << variable("DISPLAY") << '\n'
             << "bus " << variable("DBUS_SESSION_BUS_ADDRESS") << '\n';
        for (int i = 3; i < count; ++i) file << "argument <" << arguments[i] << ">\n";
    }
    fs::rename(unfinished, report);
    for (;;) pause();
}
