#include "Keyring.h"

#include <gtest/gtest.h>

namespace {

Process::Start how(const Screen& screen) {
    Process::Start start;
    start.command = {"/usr/bin/gnome-keyring-daemon", "--foreground", "--unlock", "--components=secrets"};
    start.environment = screen.environment();
    return start;
}

}  // namespace

Keyring::Keyring(Screen& screen) : daemon(how(screen)) {
    // The daemon reads the login password from its input, and makes the keyring with it.
    daemon.write("pw");
    daemon.closeInput();
    EXPECT_TRUE(screen.waitForService("org.freedesktop.secrets")) << daemon.errors();
}
