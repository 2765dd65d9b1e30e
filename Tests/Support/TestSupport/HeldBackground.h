#pragma once

#include "ScanKit/Background.h"

#include <deque>
#include <utility>

/// Work that waits until the test lets it run.
class HeldBackground : public Background {
public:
    void run(std::function<void()> work) override { held.push_back(std::move(work)); }

    std::size_t count() const { return held.size(); }
    /// Runs the oldest piece.
    void runOne() {
        const auto work = std::move(held.front());
        held.pop_front();
        work();
    }
    void runAll() {
        while (!held.empty()) runOne();
    }

private:
    std::deque<std::function<void()>> held;
};
