#pragma once

#include "StateKit/Worker.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

/// A worker with a thread of its own, which starts with the first piece of work.
///
/// Made, used and destroyed on one thread.
class WorkerThread : public Worker {
public:
    /// What the destructor does with work that has not begun.
    enum class AtEnd { finishes, drops };

    explicit WorkerThread(AtEnd atEnd = AtEnd::finishes) : atEnd(atEnd) {}
    /// Waits until all work is done; with `drops`, only until the piece that has begun is done. What the work
    /// refers to must outlive this object.
    ~WorkerThread() override;
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    void run(std::function<void()> work) override;

    [[nodiscard]] bool finish(std::chrono::milliseconds limit) override;

private:
    void serve();

    const AtEnd atEnd;
    std::mutex mutex;  // guards the members below, except `thread`
    std::condition_variable changed;
    std::deque<std::function<void()>> queue;
    bool isWorking = false;
    bool isEnding = false;
    std::thread thread;
};
