#pragma once

#include "Process.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A virtual screen with a window manager, a keyboard, a mouse and a session bus, for one test alone.
///
/// Its processes end with this object.
class Screen {
public:
    static constexpr int width = 1280;
    static constexpr int height = 800;

    /// Returns once windows can be shown; a test failure if that never happens.
    /// @param folder  an existing folder for the desktop's own files
    /// @param services  where programs put the service files of the session bus; need not exist
    explicit Screen(const std::filesystem::path& folder, const std::filesystem::path& services = {});
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// The environment of a program that runs on this screen.
    const std::map<std::string, std::string>& environment() const { return variables; }
    const std::string& sessionBus() const { return variables.at("DBUS_SESSION_BUS_ADDRESS"); }

    /// Runs xdotool, which moves the mouse, types, and finds windows.
    /// @return what xdotool wrote; nothing if it failed
    std::optional<std::string> xdotool(std::vector<std::string> words) const;
    /// Types a text, or presses keys, such as "ctrl+q".
    void type(const std::string& text) const;
    void press(const std::string& keys) const;
    void click(int x, int y, int times = 1) const;

    /// The number of the window with exactly that title, if it is on the screen and not minimised.
    std::optional<std::string> window(const std::string& title) const;
    /// The numbers of all windows with that title.
    std::vector<std::string> windows(const std::string& title) const;
    std::optional<std::string> activeWindow() const;
    /// How many windows of that class are on the screen, menus among them.
    std::size_t countOfWindows(const std::string& windowClass) const;
    /// "X,Y WIDTHxHEIGHT" of a window, without the window manager's frame.
    std::string frame(const std::string& window) const;

    /// Takes a picture of the whole screen, or of the part "WIDTHxHEIGHT+X+Y".
    void shoot(const std::filesystem::path& picture, const std::string& part = {}) const;
    /// The number of pixels in which two pictures of one size differ; nothing if they can't be compared.
    std::optional<long> difference(const std::filesystem::path& one, const std::filesystem::path& other) const;

    struct Ended {
        int status;
        std::string output;
        std::string errors;
    };
    /// Runs a program on this screen to its end.
    Ended run(std::vector<std::string> command) const;
    /// Waits until a program owns that name on the session bus. @return whether one ever did
    bool waitForService(const std::string& name) const;
    /// The process that owns a name on the session bus. Starts no service; nothing if nobody owns it.
    std::optional<pid_t> processOf(const std::string& service) const;
    /// What the services that the session bus has started have written, and the processes started by them.
    std::string busLog() const;

private:
    void startBus(const std::filesystem::path& folder, const std::filesystem::path& services);
    void startDisplay();
    void startWindowManager();

    std::map<std::string, std::string> variables;
    std::filesystem::path busLogFile;
    // They are destroyed from the last to the first: the display must go last.
    std::unique_ptr<Process> display;
    std::unique_ptr<Process> bus;
    std::unique_ptr<Process> windowManager;
};
