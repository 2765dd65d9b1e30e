#pragma once

#include "AccessibleTree.h"
#include "ChatWorld.h"
#include "Screen.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Somebody at a screen of their own, with the desktop client before them.
///
/// What they do goes through mouse and keyboard; what they see is read as assistive technology reads it.
/// Every "waits" gives up after `Process::patience`, with a test failure that lists what is on the screen.
/// Pictures of the screen are kept in the folder that VIMBLE_ARTEFACTS names, or in build/artefacts, as
/// TEST/NAME-NUMBER-STEP.png.
class Desk {
public:
    using Item = AccessibleTree::Item;

    /// @param world  must outlive this
    Desk(ChatWorld& world, std::string name);

    /// How the program is started at this desk: with the folders and the passphrase of `name`.
    Process::Start programStart(std::vector<std::string> arguments = {}) const;
    /// Starts it, on the relay unless told otherwise, and waits for its window.
    void start();
    void start(const Process::Start& how, const std::string& window = "People");
    /// Presses Ctrl+Q. The program has to end with success, and with no report of
    /// a sanitizer; what else stands on standard error is the log.
    void quit();
    Process& program() { return *running; }

    /// Waits for a window of that title, and brings it forward.
    void activate(const std::string& window);
    /// Waits until that window is the one in front.
    void expectActive(const std::string& window);
    bool hasWindow(const std::string& title) const { return _screen.window(title).has_value(); }

    /// Brings a window forward, moves it, and waits until it has that size.
    void place(const std::string& window, int x, int y, int width, int height);

    /// Does what opens a menu, and waits for that. Menus are not told of as windows.
    void opensMenu(const std::function<void()>& how);

    /// Waits for something whose name contains a text. @return nothing, and a failure, if it does not come
    std::optional<Item> sees(const std::string& window, const std::string& part, const std::string& role = {});
    /// Waits until there is nothing of that.
    void seesNoMore(const std::string& window, const std::string& part);
    /// Whether it is there now.
    std::optional<Item> find(const std::string& window, const std::string& part, const std::string& role = {});
    /// Waits until the program's state is as wanted, reading what it writes meanwhile.
    bool comesTrue(const std::function<bool()>& condition);

    void click(const std::string& window, const std::string& part, const std::string& role = {});
    void doubleClick(const std::string& window, const std::string& part);
    /// Types into what has the keyboard.
    void type(const std::string& text) { _screen.type(text); }
    void press(const std::string& keys) { _screen.press(keys); }
    /// Brings a talk forward, types a text into its input, waits until it stands there, and sends it off.
    void say(const std::string& window, const std::string& text);

    /// Takes a picture of the whole screen. @return the file
    std::filesystem::path picture(const std::string& step);
    /// Takes one of a part "WIDTHxHEIGHT+X+Y".
    std::filesystem::path picture(const std::string& step, const std::string& part);

    Screen& screen() { return _screen; }
    AccessibleTree& tree() { return _tree; }
    const std::string& name() const { return _name; }

private:
    std::string told(const std::string& window);
    void clickOn(const std::optional<Item>& item, int times);

    ChatWorld& world;
    const std::string _name;
    Screen _screen;
    AccessibleTree _tree;
    std::unique_ptr<Process> running;
    int pictures = 0;
};
