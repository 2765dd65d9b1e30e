#include "ScanKit/BackgroundThread.h"

#include <utility>

BackgroundThread::~BackgroundThread() {
    {
        std::deque<std::function<void()>> dropped;  // dies after the lock
        const std::lock_guard lock(mutex);
        isEnding = true;
        dropped = std::exchange(queue, {});
    }
    changed.notify_one();
    if (thread.joinable()) thread.join();
}

void BackgroundThread::run(std::function<void()> work) {
    {
        const std::lock_guard lock(mutex);
        queue.push_back(std::move(work));
    }
    if (!thread.joinable()) thread = std::thread([this] { this->work(); });
    changed.notify_one();
}

void BackgroundThread::work() {
    std::unique_lock lock(mutex);
    while (true) {
        changed.wait(lock, [this] { return isEnding || !queue.empty(); });
        if (isEnding) return;
        auto piece = std::exchange(queue.front(), nullptr);
        queue.pop_front();
        lock.unlock();
        piece();
        // Dies here and not under the lock: it may own a frame.
        piece = nullptr;
        lock.lock();
    }
}
