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
    WorkerThread() = default;
    /// Waits until all work is done.
    ~WorkerThread() override;
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    void run(std::function<void()> work) override;

    /// Waits until all work is done, but no longer than that.
    /// @return false if something is still being done: it goes on, with all that it uses
    bool finish(std::chrono::milliseconds limit);

private:
    void serve();

    std::mutex mutex;  // guards what follows, but for the thread
    std::condition_variable changed;
    std::deque<std::function<void()>> queue;
    bool isWorking = false;
    bool isEnding = false;
    std::thread thread;
};
