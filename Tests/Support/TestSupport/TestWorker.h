#pragma once

#include "StateKit/Worker.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <utility>

/// A worker that does nothing until the test lets it, on the test's own thread.
class TestWorker : public Worker {
public:
    void run(std::function<void()> work) override { queue.push_back(std::move(work)); }

    /// Does all that is left, unless the work has to hang: no time passes here.
    [[nodiscard]] bool finish(std::chrono::milliseconds limit) override {
        lastLimit = limit;
        if (isHanging) return queue.empty();
        runAll();
        return true;
    }

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

    bool isHanging = false;                              // what is asked for is never done by itself
    std::optional<std::chrono::milliseconds> lastLimit;  // of `finish`

private:
    std::deque<std::function<void()>> queue;
};
