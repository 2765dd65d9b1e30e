#pragma once

#include "Process.h"
#include "Screen.h"

#include <filesystem>
#include <memory>
#include <string>

/// A real notification service on a screen. Its bubbles stay until they are closed; a click calls the default
/// action and closes the bubble.
class NotificationService {
public:
    /// Returns once the service answers on the bus; a test failure if it never does.
    /// @param screen  must outlive this
    /// @param folder  an existing folder for the service's configuration
    NotificationService(Screen& screen, const std::filesystem::path& folder);

    /// How many bubbles are on the screen.
    long displayed() const;
    /// The texts of all bubbles so far, closed or not, in the order in which they appeared.
    const std::string& shown();
    /// The bubbles that were closed, as JSON with all their fields.
    std::string closed() const;
    /// Clicks the bubble on top.
    void click() const;
    /// Ends the service at once, as by kill -9.
    void kill() { daemon->kill(); }

private:
    Screen& screen;
    std::unique_ptr<Process> daemon;
};
