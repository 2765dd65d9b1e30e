#pragma once

#include "Process.h"
#include "Screen.h"

#include <filesystem>
#include <memory>
#include <string>

/// A real notification service on a screen: its bubbles stay until they are closed, and a click is the default
/// action and closes the bubble.
class NotificationService {
public:
    /// Returns when it can be asked; a test failure if that does not come to be.
    /// @param screen  must outlive this
    /// @param folder  for its configuration; exists
    NotificationService(Screen& screen, const std::filesystem::path& folder);

    /// How many bubbles are on the screen.
    long displayed() const;
    /// What all bubbles so far say, closed or not, in the order of their coming.
    const std::string& shown();
    /// Those that were closed, as JSON with all their fields.
    std::string closed() const;
    /// Clicks the bubble on top.
    void click() const;
    /// kill -9.
    void kill() { daemon->kill(); }

private:
    Screen& screen;
    std::unique_ptr<Process> daemon;
};
