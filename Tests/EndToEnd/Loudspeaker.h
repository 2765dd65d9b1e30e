#pragma once

#include "Process.h"
#include "Screen.h"

#include <memory>

/// A real sound server on a screen that plays into nothing, and what it plays is listened to.
class Loudspeaker {
public:
    /// Returns when it can be played on and is being listened to; a test failure if that does not come to be.
    explicit Loudspeaker(const Screen& screen);

    /// Whether anything but silence was played since it was last asked.
    bool wasHeard();
    /// Whether the last half second was silent.
    bool isSilent();

private:
    std::unique_ptr<Process> server;
    std::unique_ptr<Process> recording;
    std::size_t listened = 0;  // bytes of the recording
};
