#pragma once

#include "StateKit/MainLoop.h"
#include "UpdateKit/Outcome.h"

#include <functional>
#include <memory>
#include <stop_token>
#include <thread>
#include <utility>

/// Runs blocking work of the updater on a thread of its own, so that the updater's loop goes on turning and can call
/// the work off.
///
/// `begin` returns a handle. Dropping it asks the work to stop, waits for its end, and drops the completion uncalled:
/// from then on, what the work has left behind can be removed. Use it on the loop's thread.
template <class Value>
class BackgroundWork {
public:
    /// Runs on the other thread. What it throws is the outcome. It has to end soon once a stop is asked for.
    using Work = std::function<Value(const std::stop_token&)>;

    /// @param loop  must outlive the handle
    static std::shared_ptr<void> begin(MainLoop& loop, Work work, Completion<Value> completion) {
        const auto self = std::make_shared<BackgroundWork>(std::move(completion));
        self->thread =
            std::jthread([&loop, weak = std::weak_ptr(self), work = std::move(work)](const std::stop_token& stop) {
                auto outcome = result(work, stop);
                loop.post([weak, outcome = std::move(outcome)] {
                    if (const auto held = weak.lock()) held->end(outcome);
                });
            });
        return self;
    }

    explicit BackgroundWork(Completion<Value> completion) : completion(std::move(completion)) {}

private:
    static Outcome<Value> result(const Work& work, const std::stop_token& stop) {
        return Outcome<Value>::of([&] { return work(stop); });
    }

    void end(Outcome<Value> outcome) {
        if (const auto tell = std::exchange(completion, {})) tell(std::move(outcome));
    }

    Completion<Value> completion;
    std::jthread thread;  // the last member, so it is destroyed first: it is asked to stop, and waited for
};
