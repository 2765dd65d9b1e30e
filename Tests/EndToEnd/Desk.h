#pragma once

#include "AccessibleTree.h"
#include "ChatWorld.h"
#include "Screen.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A user at a screen of their own, in front of the desktop client.
///
/// The user acts with mouse and keyboard, and sees what assistive technology reads. An operation that waits
/// gives up after `Process::patience`, with a test failure that lists what is on the screen.
/// Pictures of the screen are kept in the folder that VIMBLE_ARTEFACTS names, or in build/artefacts, as
/// TEST/NAME-NUMBER-STEP.png.
class Desk {
public:
    using Item = AccessibleTree::Item;

    /// @param world  must outlive this
    Desk(ChatWorld& world, std::string name);

    /// How the program is started at this desk: with the folders and the passphrase of `name`.
    Process::Start programStart(std::vector<std::string> arguments = {}) const;
    /// Starts the program, and waits for its window. The form without arguments uses the world's relay.
    void start();
    void start(const Process::Start& how, const std::string& window = "People");
    /// Presses Ctrl+Q. The program must end with status 0 and without a sanitizer's report. Any other text on
    /// standard error is its log, and is ignored.
    void quit();
    Process& program() { return *running; }

    /// Waits for a window of that title, and brings it forward.
    void activate(const std::string& window);
    /// Waits until that window is the one in front.
    void expectActive(const std::string& window);
    bool hasWindow(const std::string& title) const { return _screen.window(title).has_value(); }

    /// Brings a window forward, moves it, and waits until it has that size.
    void place(const std::string& window, int x, int y, int width, int height);

    /// Runs `how`, which opens a menu, and waits until one more window is on the screen: the accessibility tree
    /// does not list menus as windows.
    void opensMenu(const std::function<void()>& how);

    /// Waits for an item whose name contains `part`. @return nothing, with a test failure, if none comes
    std::optional<Item> sees(const std::string& window, const std::string& part, const std::string& role = {});
    /// Waits until no such item is left.
    void seesNoMore(const std::string& window, const std::string& part);
    /// The first such item that is there now; does not wait.
    std::optional<Item> find(const std::string& window, const std::string& part, const std::string& role = {});
    /// Waits until the condition holds, and reads what the program writes meanwhile. @return whether it ever did
    bool comesTrue(const std::function<bool()>& condition);

    void click(const std::string& window, const std::string& part, const std::string& role = {});
    void doubleClick(const std::string& window, const std::string& part);
    /// Types into whatever has the keyboard focus.
    void type(const std::string& text) { _screen.type(text); }
    void press(const std::string& keys) { _screen.press(keys); }
    /// Brings a talk's window forward, types a text into its input, waits until it stands there, and sends it.
    void say(const std::string& window, const std::string& text);

    /// Takes a picture of the whole screen. @return the file
    std::filesystem::path picture(const std::string& step);
    /// Takes a picture of the part "WIDTHxHEIGHT+X+Y" of the screen.
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
