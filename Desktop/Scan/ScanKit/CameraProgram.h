#pragma once

#include "ScanKit/CameraStream.h"

#include <functional>

/// The camera in a process of its own, as the one who watches over it sees it.
///
/// Main thread only. No handler runs within `start` or `stop`, and none after `stop`. A handler may call `stop` or
/// `start`, and may destroy the program. Destroying it stops it.
class CameraProgram {
public:
    struct Handlers {
        /// One frame or word after the other, as fast as they are taken.
        std::function<void(CameraMessage)> didSend;
        /// It has crashed, ended, talked nonsense, or could not be started. It is stopped by then.
        std::function<void()> didEnd;
    };

    virtual ~CameraProgram() = default;

    /// Runs the program; anew, if it runs.
    virtual void start(Handlers handlers) = 0;
    /// Ends it at once, whatever it is doing, and does not wait for that.
    virtual void stop() = 0;
};
