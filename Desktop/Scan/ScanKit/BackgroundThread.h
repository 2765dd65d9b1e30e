#pragma once

#include "ScanKit/Background.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

/// Work on a thread of its own, which starts with the first piece.
///
/// Destroying it drops what has not begun, and waits for the piece that has. Everything that the work refers to,
/// such as the loop to which it posts, must outlive it.
class BackgroundThread : public Background {
public:
    BackgroundThread() = default;
    ~BackgroundThread() override;
    BackgroundThread(const BackgroundThread&) = delete;
    BackgroundThread& operator=(const BackgroundThread&) = delete;

    void run(std::function<void()> work) override;

private:
    void work();

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> queue;
    bool isEnding = false;
    std::thread thread;
};
