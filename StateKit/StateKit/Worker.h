#pragma once

#include <chrono>
#include <functional>

/// Takes work off the main thread. Work that may block for an unknown time, such as a question to the
/// secret store, would freeze the windows there.
class Worker {
public:
    virtual ~Worker() = default;

    /// Runs `work` on another thread, behind what was given before it, one piece at a time. Main thread only.
    /// The work, and with it all that it holds, may be destroyed on that thread.
    virtual void run(std::function<void()> work) = 0;

    /// Waits until all work is done, but no longer than `limit`. Main thread only.
    /// @return false if some work is not done: it goes on, and goes on using what it refers to
    [[nodiscard]] virtual bool finish(std::chrono::milliseconds limit) = 0;
};
