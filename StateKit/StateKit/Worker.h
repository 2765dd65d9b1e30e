#pragma once

#include <functional>

/// Takes work off the main thread. Work that may block for an unknown time, such as a question to the
/// secret store, would freeze the windows there.
class Worker {
public:
    virtual ~Worker() = default;

    /// Runs `work` on another thread, behind what was given before it, one piece at a time. Main thread only.
    /// The work, and with it all that it holds, may be destroyed on that thread.
    virtual void run(std::function<void()> work) = 0;
};
