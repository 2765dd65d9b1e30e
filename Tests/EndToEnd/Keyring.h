#pragma once

#include "Process.h"
#include "Screen.h"

/// The real secret service on a screen's session bus, with an empty keyring that is open, as after a login.
class Keyring {
public:
    /// Returns when it can be asked; a test failure if that does not come to be.
    explicit Keyring(Screen& screen);

private:
    Process daemon;
};
