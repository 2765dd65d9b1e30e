#pragma once

#include "StateKit/PathMonitor.h"

#include <memory>
#include <utility>

/// A network path that the test opens and closes. The monitor belongs to what it was given to; the
/// path is the test's and outlives it.
class FakePath {
public:
    /// A monitor that reports this path. One at a time.
    std::unique_ptr<PathMonitor> monitor() { return std::make_unique<Monitor>(shared); }

    /// An update of the path, also when it changes nothing; nobody hears it unless `isWatched`.
    void update(bool isSatisfied) {
        // Held here, since whoever is told may end the watch.
        const auto handler = shared->handler;
        if (handler) handler(isSatisfied);
    }
    bool isWatched() const { return bool(shared->handler); }
    int startCount() const { return shared->startCount; }

private:
    struct Shared {
        std::function<void(bool)> handler;
        int startCount = 0;
    };

    class Monitor : public PathMonitor {
    public:
        explicit Monitor(std::shared_ptr<Shared> shared) : shared(std::move(shared)) {}
        ~Monitor() override { shared->handler = nullptr; }
        void start(std::function<void(bool)> handler) override {
            shared->handler = std::move(handler);
            ++shared->startCount;
        }
        void cancel() override { shared->handler = nullptr; }

    private:
        std::shared_ptr<Shared> shared;
    };

    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};
