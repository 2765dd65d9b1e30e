#pragma once

#include "StateKit/PathMonitor.h"

#include <memory>
#include <utility>

/// A network path that the test opens and closes. It must outlive its monitor.
class FakePath {
public:
    /// Makes a monitor of this path. Only one at a time.
    std::unique_ptr<PathMonitor> monitor() { return std::make_unique<Monitor>(shared); }

    /// Reports the path to the monitor's handler, also when nothing has changed. Does nothing unless `isWatched`.
    void update(bool isSatisfied) {
        // Copied, since the handler may destroy the monitor, and so itself.
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
