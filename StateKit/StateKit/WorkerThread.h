#pragma once

#include "StateKit/Worker.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

/// The worker that is a thread of its own, made with the first piece of work.
///
/// Made, used and destroyed on one thread.
class WorkerThread : public Worker {
public:
    /// What the end does with work that has not begun.
    enum class AtEnd { finishes, drops };

    explicit WorkerThread(AtEnd atEnd = AtEnd::finishes) : atEnd(atEnd) {}
    /// Waits until all work is done, or, where the rest is dropped, the piece that has begun. What the work
    /// refers to must outlive it.
    ~WorkerThread() override;
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    void run(std::function<void()> work) override;

    /// Waits until all work is done, but no longer than that.
    /// @return false if something is still being done: it goes on, with all that it uses
    bool finish(std::chrono::milliseconds limit);

private:
    void serve();

    const AtEnd atEnd;
    std::mutex mutex;  // guards what follows, but for the thread
    std::condition_variable changed;
    std::deque<std::function<void()>> queue;
    bool isWorking = false;
    bool isEnding = false;
    std::thread thread;
};
