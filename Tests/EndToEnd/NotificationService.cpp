#include "NotificationService.h"

#include "ChatWorld.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

NotificationService::NotificationService(Screen& screen, const std::filesystem::path& folder) : screen(screen) {
    const std::filesystem::path configuration = folder / "dunstrc";
    std::ofstream(configuration) << "[global]\n"
                                    "width = 320\n"
                                    "origin = top-right\n"
                                    "font = Noto Sans 10\n"
                                    "markup = full\n"
                                    "mouse_left_click = do_action, close_current\n"
                                    "[urgency_low]\ntimeout = 0\n"
                                    "[urgency_normal]\ntimeout = 0\n"
                                    "[urgency_critical]\ntimeout = 0\n";
    Process::Start start;
    start.command = {"/usr/bin/dunst", "-conf", configuration.string(), "-print"};
    start.environment = screen.environment();
    daemon = std::make_unique<Process>(start);
    EXPECT_TRUE(screen.waitForService("org.freedesktop.Notifications")) << daemon->errors();
}

long NotificationService::displayed() const {
    return std::atol(screen.run({"/usr/bin/dunstctl", "count", "displayed"}).output.c_str());
}

const std::string& NotificationService::shown() {
    daemon->readAvailable();
    return daemon->output();
}

std::string NotificationService::closed() const { return screen.run({"/usr/bin/dunstctl", "history"}).output; }

void NotificationService::click() const {
    const auto bubble = screen.xdotool({"search", "--onlyvisible", "--class", "^Dunst$"});
    ASSERT_TRUE(bubble);
    const std::string id = bubble->substr(0, bubble->find('\n'));
    // All bubbles are one window, the first on top.
    ASSERT_TRUE(screen.xdotool({"mousemove", "--window", id, "60", "20", "click", "1"}));
}
