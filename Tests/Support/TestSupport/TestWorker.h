#pragma once

#include "StateKit/Worker.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <utility>

/// A worker that does nothing until the test lets it, on the test's own thread.
class TestWorker : public Worker {
public:
    void run(std::function<void()> work) override { queue.push_back(std::move(work)); }

    /// Does the next piece of work. @return false if there is none
    bool step() {
        if (queue.empty()) return false;
        const auto work = std::move(queue.front());
        queue.pop_front();
        work();
        return true;
    }
    /// Does all pieces of work, also those that are added meanwhile.
    void runAll() {
        while (step()) {
        }
    }
    std::size_t waiting() const { return queue.size(); }

private:
    std::deque<std::function<void()>> queue;
};
