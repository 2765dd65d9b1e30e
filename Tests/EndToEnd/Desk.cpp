#include "Desk.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace fs = std::filesystem;

namespace {

fs::path artefacts() {
    const char* given = std::getenv("VIMBLE_ARTEFACTS");
    const fs::path folder = given != nullptr && *given != '\0' ? given : ARTEFACTS_FOLDER;
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    return folder / (std::string(test->test_suite_name()) + "." + test->name());
}

fs::path made(const fs::path& folder) {
    fs::create_directories(folder);
    return folder;
}

}  // namespace

Desk::Desk(ChatWorld& world, std::string name)
    : world(world),
      _name(std::move(name)),
      _screen(made(world.folder.path / _name), fs::path(world.environment["XDG_DATA_HOME"]) / "dbus-1" / "services"),
      _tree(_screen.sessionBus()) {}

Process::Start Desk::programStart(std::vector<std::string> arguments) const {
    Process::Start start;
    start.command = {DESKTOP_PROGRAM, "--data-dir", world.dataFolder(_name).string(), "--secret-file",
                     world.secretFile(_name).string()};
    start.command.insert(start.command.end(), arguments.begin(), arguments.end());
    start.environment = world.environment;
    for (const auto& [name, value] : _screen.environment()) start.environment[name] = value;
    start.environment["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1";
    // The keyboard library copies parts of the X server's answers with strndup. Strict string checks take these
    // parts for whole strings, and would end the program at its start.
    std::string& options = start.environment["ASAN_OPTIONS"];
    options += options.empty() ? "strict_string_checks=0" : ":strict_string_checks=0";
    return start;
}

void Desk::start() { start(programStart({"--server", world.server()})); }

void Desk::start(const Process::Start& how, const std::string& window) {
    running = std::make_unique<Process>(how);
    if (!comesTrue([&] { return hasWindow(window); }))
        ADD_FAILURE() << "no window " << window << "\n" << running->output() << running->errors();
}

void Desk::quit() {
    press("ctrl+q");
    EXPECT_EQ(running->wait(), 0) << running->errors();
    EXPECT_EQ(running->errors().find("Sanitizer"), std::string::npos) << running->errors();
}

void Desk::activate(const std::string& window) {
    std::string last;
    const bool isActive = comesTrue([&] {
        const auto wanted = _screen.window(window);
        if (!wanted) return false;
        if (_screen.activeWindow() == wanted) return true;
        // Ask only once for each window: a second request could raise it again in the middle of the next step.
        if (std::exchange(last, *wanted) != *wanted) static_cast<void>(_screen.xdotool({"windowactivate", *wanted}));
        return false;
    });
    if (!isActive) ADD_FAILURE() << window << " does not come forward\n" << told(window);
}

void Desk::expectActive(const std::string& window) {
    const bool isActive = comesTrue([&] {
        const auto wanted = _screen.window(window);
        return wanted && _screen.activeWindow() == wanted;
    });
    if (!isActive) ADD_FAILURE() << window << " is not in front\n" << told(window);
}

void Desk::place(const std::string& window, int x, int y, int width, int height) {
    activate(window);
    const std::string id = _screen.window(window).value_or("");
    const auto number = [](int value) { return std::to_string(value); };
    ASSERT_TRUE(_screen.xdotool({"windowsize", id, number(width), number(height)}));
    ASSERT_TRUE(_screen.xdotool({"windowmove", id, number(x), number(y)}));
    EXPECT_TRUE(comesTrue([&] { return _screen.frame(id).ends_with(" " + number(width) + "x" + number(height)); }))
        << window << " is " << _screen.frame(id);
}

void Desk::opensMenu(const std::function<void()>& how) {
    const std::size_t before = _screen.countOfWindows("vimble");
    how();
    if (!comesTrue([&] { return _screen.countOfWindows("vimble") > before; }))
        ADD_FAILURE() << "no menu opens\n" << told({});
}

std::optional<Desk::Item> Desk::find(const std::string& window, const std::string& part, const std::string& role) {
    for (Item& item : _tree.items(window))
        if (item.name.find(part) != std::string::npos && (role.empty() || item.role == role)) return std::move(item);
    return std::nullopt;
}

std::optional<Desk::Item> Desk::sees(const std::string& window, const std::string& part, const std::string& role) {
    std::optional<Item> found;
    if (!comesTrue([&] { return (found = find(window, part, role)).has_value(); }))
        ADD_FAILURE() << _name << " does not see \"" << part << "\" in " << window << "\n" << told(window);
    return found;
}

void Desk::seesNoMore(const std::string& window, const std::string& part) {
    if (!comesTrue([&] { return !find(window, part); }))
        ADD_FAILURE() << _name << " still sees \"" << part << "\" in " << window << "\n" << told(window);
}

bool Desk::comesTrue(const std::function<bool()>& condition) {
    return eventually([&] {
        // Empty the program's pipes: it would stop at its next line once one is full.
        if (running) running->readAvailable();
        return condition();
    });
}

void Desk::click(const std::string& window, const std::string& part, const std::string& role) {
    activate(window);
    clickOn(sees(window, part, role), 1);
}

void Desk::doubleClick(const std::string& window, const std::string& part) {
    activate(window);
    clickOn(sees(window, part), 2);
}

void Desk::clickOn(const std::optional<Item>& item, int times) {
    if (!item) return;
    const auto place = _tree.place(*item);
    ASSERT_TRUE(place) << item->name;
    _screen.click(place->x + place->width / 2, place->y + place->height / 2, times);
}

void Desk::say(const std::string& window, const std::string& text) {
    activate(window);
    const auto input = sees(window, "Message", "text");
    ASSERT_TRUE(input);
    if (!comesTrue([&] { return _tree.isFocused(*input); })) ADD_FAILURE() << "the keyboard does not write there";
    type(text);
    if (!comesTrue([&] { return _tree.text(*input) == text; }))
        ADD_FAILURE() << "typed \"" << text << "\", and \"" << _tree.text(*input) << "\" stands there";
    press("Return");
}

fs::path Desk::picture(const std::string& step) { return picture(step, {}); }

fs::path Desk::picture(const std::string& step, const std::string& part) {
    char number[16];
    std::snprintf(number, sizeof number, "%02d", ++pictures);
    fs::path file = artefacts() / (_name + "-" + number + "-" + step + ".png");
    _screen.shoot(file, part);
    return file;
}

/// What a failure prints: the windows there are, the items in this one, and all that the program has written.
/// Takes a picture too.
std::string Desk::told(const std::string& window) {
    std::string text;
    const auto windows = _tree.windows();
    for (const Item& each : windows) text += "window: " + each.name + " (" + each.role + ")\n";
    for (const Item& each : _tree.items(window))
        text += "  " + each.role + ": " + each.name + " | " + _tree.text(each) + "\n";
    if (running) text += "--- output\n" + running->output() + "--- errors\n" + running->errors();
    picture("failure");
    return text;
}
