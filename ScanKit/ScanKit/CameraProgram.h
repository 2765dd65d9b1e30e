#pragma once

#include "ScanKit/CameraStream.h"

#include <functional>

/// The program that has the camera in a process of its own, as `WatchedCamera` sees it.
///
/// Main thread only. No handler runs within `start` or `stop`, and none after `stop`. A handler may call `stop` or
/// `start`, and may destroy this object. Destroying it stops the program.
class CameraProgram {
public:
    struct Handlers {
        /// Called with each message. The program sends no faster than this side reads.
        std::function<void(CameraMessage)> didSend;
        /// Called when the program has crashed, ended, sent invalid bytes, or could not be started. It is already
        /// stopped.
        std::function<void()> didEnd;
    };

    virtual ~CameraProgram() = default;

    /// Runs the program; one that is running is replaced by a new one.
    virtual void start(Handlers handlers) = 0;
    /// Kills the program, whatever it is doing, and does not wait for its end.
    virtual void stop() = 0;
};
