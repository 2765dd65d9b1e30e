#include "StateKit/WorkerThread.h"

#include <utility>

WorkerThread::~WorkerThread() {
    if (!thread.joinable()) return;
    {
        std::deque<std::function<void()>> dropped;  // may own much, so it is destroyed after the lock is released
        const std::lock_guard lock(mutex);
        isEnding = true;
        if (atEnd == AtEnd::drops) dropped = std::exchange(queue, {});
    }
    changed.notify_all();
    thread.join();
}

void WorkerThread::run(std::function<void()> work) {
    {
        const std::lock_guard lock(mutex);
        queue.push_back(std::move(work));
    }
    changed.notify_all();
    if (!thread.joinable()) thread = std::thread([this] { serve(); });
}

bool WorkerThread::finish(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [this] { return queue.empty() && !isWorking; });
}

void WorkerThread::serve() {
    std::unique_lock lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return isEnding || !queue.empty(); });
        if (queue.empty()) return;
        auto work = std::move(queue.front());
        queue.pop_front();
        isWorking = true;
        lock.unlock();
        work();
        work = nullptr;  // destroys what the work holds, before `finish` reports that it is done
        lock.lock();
        isWorking = false;
        changed.notify_all();
    }
}
