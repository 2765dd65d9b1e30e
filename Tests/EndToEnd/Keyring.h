#pragma once

#include "Process.h"
#include "Screen.h"

/// The real secret service on a screen's session bus, with an empty keyring that is unlocked, as after a login.
class Keyring {
public:
    /// Returns once the service answers on the bus; a test failure if it never does.
    explicit Keyring(Screen& screen);

private:
    Process daemon;
};
