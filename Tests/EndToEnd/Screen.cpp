#include "Screen.h"

#include "ChatWorld.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

namespace {

// Before each character that the keyboard lacks, xdotool gives a key a new meaning. A program needs a moment to
// hear of that, so these characters are typed more slowly.
constexpr char betweenStrangeKeysMs[] = "150";
constexpr char betweenKeysMs[] = "4";

bool isAscii(const std::string& text) {
    for (const char character : text)
        if (static_cast<unsigned char>(character) > 0x7f) return false;
    return true;
}

/// A regular expression that matches this title and no other.
std::string exactly(const std::string& title) {
    std::string pattern = "^";
    for (const char character : title) {
        if (std::string_view(R"(\^$.|?*+()[]{})").find(character) != std::string_view::npos) pattern += '\\';
        pattern += character;
    }
    return pattern + "$";
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

}  // namespace

Screen::Screen(const fs::path& folder, const fs::path& services) {
    for (const char* name : {"screen-home", "screen-run"}) {
        fs::create_directories(folder / name);
        fs::permissions(folder / name, fs::perms::owner_all);
    }
    variables = {{"HOME", (folder / "screen-home").string()},
                 {"XDG_RUNTIME_DIR", (folder / "screen-run").string()},
                 {"LC_ALL", "C.UTF-8"},
                 {"PATH", "/usr/bin:/bin"}};
    startDisplay();
    startBus(folder, services);
    startWindowManager();
}

Screen::~Screen() = default;

void Screen::startDisplay() {
    Process::Start start;
    // -noreset: otherwise the server starts anew when its last client leaves. The program that asks for the window
    // manager could be that client, and its leaving would throw out a window manager that is just connecting.
    start.command = {"/usr/bin/Xvfb",
                     "-displayfd",
                     "1",
                     "-noreset",
                     "-screen",
                     "0",
                     std::to_string(width) + "x" + std::to_string(height) + "x24",
                     "-wr",
                     "-nolisten",
                     "tcp"};
    start.environment = variables;
    display = std::make_unique<Process>(start);
    const auto number = display->line([](std::string_view text) { return !text.empty(); }, "display");
    variables["DISPLAY"] = ":" + number.value_or("none");
}

void Screen::startBus(const fs::path& folder, const fs::path& services) {
    // Of the services that this machine starts on demand, offer only the one for accessibility: a portal or a
    // keyring that happens to be installed must not take part in the test.
    const fs::path reading = folder / "screen-services";
    fs::create_directories(reading);
    fs::copy_file("/usr/share/dbus-1/services/org.a11y.Bus.service", reading / "org.a11y.Bus.service");
    const std::string more = services.empty() ? "" : "<servicedir>" + services.string() + "</servicedir>";
    const fs::path configuration = folder / "screen-bus.conf";
    std::ofstream(configuration) << "<busconfig><type>session</type><listen>unix:dir="
                                 << (folder / "screen-run").string() << "</listen><auth>EXTERNAL</auth><servicedir>"
                                 << reading.string() << "</servicedir>" << more
                                 << "<policy context=\"default\"><allow send_destination=\"*\" "
                                    "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                                    "<allow own=\"*\"/></policy></busconfig>\n";
    Process::Start start;
    // The bus writes its log to a file: the services that it starts share its output, may run on after the test has
    // stopped reading, and would stop at a full pipe.
    busLogFile = folder / "screen-bus.log";
    start.command = {"/bin/sh",
                     "-c",
                     "exec /usr/bin/dbus-daemon --nofork --print-address=3 --config-file=\"$1\" 3>&1 >\"$2\" 2>&1",
                     "sh",
                     configuration.string(),
                     busLogFile.string()};
    start.environment = variables;
    bus = std::make_unique<Process>(start);
    variables["DBUS_SESSION_BUS_ADDRESS"] = bus->lineThatBegins("unix:").value_or("unix:path=/none");
}

void Screen::startWindowManager() {
    Process::Start start;
    start.command = {"/usr/bin/openbox"};
    start.environment = variables;
    windowManager = std::make_unique<Process>(start);
    EXPECT_TRUE(eventually([&] {
        const Ended answer = run({"/usr/bin/xprop", "-root", "_NET_SUPPORTING_WM_CHECK"});
        return answer.output.find("window id") != std::string::npos;
    })) << "no window manager: "
        << (windowManager->readAvailable(), windowManager->errors());
}

Screen::Ended Screen::run(std::vector<std::string> command) const {
    Process::Start start;
    start.command = std::move(command);
    start.environment = variables;
    Process process(start);
    process.closeInput();
    const int status = process.wait().value_or(-1);
    return {status, process.output(), process.errors()};
}

bool Screen::waitForService(const std::string& name) const {
    return eventually([&] {
        const Ended answer =
            run({"/usr/bin/dbus-send", "--session", "--print-reply=literal", "--dest=org.freedesktop.DBus",
                 "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner", "string:" + name});
        return answer.output.find("true") != std::string::npos;
    });
}

std::optional<pid_t> Screen::processOf(const std::string& service) const {
    const Ended answer =
        run({"/usr/bin/dbus-send", "--session", "--print-reply=literal", "--dest=org.freedesktop.DBus",
             "/org/freedesktop/DBus", "org.freedesktop.DBus.GetConnectionUnixProcessID", "string:" + service});
    const std::size_t at = answer.output.find("uint32 ");
    if (at == std::string::npos) return std::nullopt;
    return std::atoi(answer.output.c_str() + at + 7);
}

std::string Screen::busLog() const {
    std::ifstream file(busLogFile);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::optional<std::string> Screen::xdotool(std::vector<std::string> words) const {
    words.insert(words.begin(), "/usr/bin/xdotool");
    Ended ended = run(std::move(words));
    if (ended.status != 0) return std::nullopt;
    return std::move(ended.output);
}

void Screen::type(const std::string& text) const {
    const char* delay = isAscii(text) ? betweenKeysMs : betweenStrangeKeysMs;
    EXPECT_TRUE(xdotool({"type", "--delay", delay, "--", text}));
}

void Screen::press(const std::string& keys) const { EXPECT_TRUE(xdotool({"key", keys})) << keys; }

void Screen::click(int x, int y, int times) const {
    EXPECT_TRUE(xdotool({"mousemove", std::to_string(x), std::to_string(y), "click", "--repeat", std::to_string(times),
                         "--delay", "60", "1"}));
}

std::optional<std::string> Screen::window(const std::string& title) const {
    const auto found = windows(title);
    if (found.empty()) return std::nullopt;
    return found.front();
}

std::vector<std::string> Screen::windows(const std::string& title) const {
    std::vector<std::string> found;
    std::istringstream lines(xdotool({"search", "--onlyvisible", "--name", exactly(title)}).value_or(""));
    for (std::string line; std::getline(lines, line);) found.push_back(line);
    return found;
}

std::optional<std::string> Screen::activeWindow() const {
    const auto found = xdotool({"getactivewindow"});
    if (!found) return std::nullopt;
    return firstLine(*found);
}

std::size_t Screen::countOfWindows(const std::string& windowClass) const {
    const auto found = xdotool({"search", "--onlyvisible", "--class", windowClass});
    return found ? static_cast<std::size_t>(std::count(found->begin(), found->end(), '\n')) : 0;
}

std::string Screen::frame(const std::string& window) const {
    const std::string told = run({"/usr/bin/xwininfo", "-id", window}).output;
    const auto number = [&](const std::string& label) {
        const std::size_t at = told.find(label);
        return at == std::string::npos ? -1 : std::atoi(told.c_str() + at + label.size());
    };
    return std::to_string(number("Absolute upper-left X:")) + "," + std::to_string(number("Absolute upper-left Y:")) +
           " " + std::to_string(number("Width:")) + "x" + std::to_string(number("Height:"));
}

void Screen::shoot(const fs::path& picture, const std::string& part) const {
    fs::create_directories(picture.parent_path());
    std::vector<std::string> command = {"/usr/bin/import", "-silent", "-window", "root"};
    if (!part.empty()) command.insert(command.end(), {"-crop", part, "+repage"});
    command.push_back(picture.string());
    const Ended ended = run(command);
    EXPECT_EQ(ended.status, 0) << ended.errors;
}

std::optional<long> Screen::difference(const fs::path& one, const fs::path& other) const {
    const Ended ended = run({"/usr/bin/compare", "-metric", "AE", one.string(), other.string(), "null:"});
    // The status is 0 if they are alike, 1 if they differ, and 2 if they can't be compared.
    if (ended.status != 0 && ended.status != 1) return std::nullopt;
    return std::atol(ended.errors.c_str());
}
