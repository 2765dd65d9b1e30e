#pragma once

#include "Process.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A screen with a window manager, a keyboard, a mouse and a session bus, for one test alone.
///
/// All of it runs without a real screen, and ends with its holder.
class Screen {
public:
    static constexpr int width = 1280;
    static constexpr int height = 800;

    /// Returns when windows can be shown; a test failure if that does not come to be.
    /// @param folder  for what the desktop itself writes; exists
    /// @param services  where programs say what the session bus is to start for them; need not exist
    explicit Screen(const std::filesystem::path& folder, const std::filesystem::path& services = {});
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// What a program needs in its environment to run on it.
    const std::map<std::string, std::string>& environment() const { return variables; }
    const std::string& sessionBus() const { return variables.at("DBUS_SESSION_BUS_ADDRESS"); }

    /// Moves the mouse, types, asks for windows: all that xdotool knows.
    /// @return what it wrote; nothing if it failed
    std::optional<std::string> xdotool(std::vector<std::string> words) const;
    /// Types a text, or presses keys, such as "ctrl+q".
    void type(const std::string& text) const;
    void press(const std::string& keys) const;
    void click(int x, int y, int times = 1) const;

    /// The number of the window with exactly that title, if it is on the screen and not minimised.
    std::optional<std::string> window(const std::string& title) const;
    /// All of them.
    std::vector<std::string> windows(const std::string& title) const;
    std::optional<std::string> activeWindow() const;
    /// How many windows of that class are on the screen, menus among them.
    std::size_t countOfWindows(const std::string& windowClass) const;
    /// "X,Y WIDTHxHEIGHT" of a window, without the window manager's frame.
    std::string frame(const std::string& window) const;

    /// Takes a picture, of all or of a part "WIDTHxHEIGHT+X+Y".
    void shoot(const std::filesystem::path& picture, const std::string& part = {}) const;
    /// In how many points two pictures of one size differ.
    std::optional<long> difference(const std::filesystem::path& one, const std::filesystem::path& other) const;

    struct Ended {
        int status;
        std::string output;
        std::string errors;
    };
    /// Runs a program on it to its end.
    Ended run(std::vector<std::string> command) const;
    /// Waits until somebody has that name on the session bus. @return whether it came to be
    bool waitForService(const std::string& name) const;
    /// Who has a name on the session bus. Nobody is started.
    std::optional<pid_t> processOf(const std::string& service) const;
    /// What those have written whom the session bus has started, and those whom they have started.
    std::string busLog() const;

private:
    void startBus(const std::filesystem::path& folder, const std::filesystem::path& services);
    void startDisplay();
    void startWindowManager();

    std::map<std::string, std::string> variables;
    std::filesystem::path busLogFile;
    // In the order of their making: the display goes last.
    std::unique_ptr<Process> display;
    std::unique_ptr<Process> bus;
    std::unique_ptr<Process> windowManager;
};
