#pragma once

#include "Process.h"
#include "Screen.h"

#include <memory>

/// A real sound server on a screen. It plays into nothing, and what it plays is recorded.
class Loudspeaker {
public:
    /// Returns once programs can play and the recording runs; a test failure if that never happens.
    explicit Loudspeaker(const Screen& screen);

    /// Whether anything but silence was played since the last call.
    bool wasHeard();
    /// Whether the last half second was silent.
    bool isSilent();

private:
    std::unique_ptr<Process> server;
    std::unique_ptr<Process> recording;
    std::size_t listened = 0;  // bytes of the recording that earlier calls of `wasHeard` have looked at
};
