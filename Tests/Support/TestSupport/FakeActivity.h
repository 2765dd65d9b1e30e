#pragma once

#include "StateKit/ActivityMonitor.h"

#include <memory>
#include <utility>

/// An application that the test moves to the front and back, and ends. It must outlive its monitor.
class FakeApplication {
public:
    /// Makes a monitor of this application. Only one at a time.
    std::unique_ptr<ActivityMonitor> activity() { return std::make_unique<Observer>(shared); }

    void becomeActive() {
        shared->isActive = true;
        run(&ActivityMonitor::Handlers::didBecomeActive);
    }
    void resignActive() {
        shared->isActive = false;
        run(&ActivityMonitor::Handlers::willResignActive);
    }
    void terminate() { run(&ActivityMonitor::Handlers::willTerminate); }
    bool isObserved() const { return bool(shared->handlers.didBecomeActive); }

private:
    struct Shared {
        ActivityMonitor::Handlers handlers;
        bool isActive = false;
    };

    class Observer : public ActivityMonitor {
    public:
        explicit Observer(std::shared_ptr<Shared> shared) : shared(std::move(shared)) {}
        ~Observer() override { shared->handlers = {}; }
        void observe(Handlers handlers) override { shared->handlers = std::move(handlers); }
        bool isActive() const override { return shared->isActive; }

    private:
        std::shared_ptr<Shared> shared;
    };

    void run(std::function<void()> ActivityMonitor::Handlers::*member) {
        // Copied, since the handler may destroy the monitor, and so itself.
        const auto handler = shared->handlers.*member;
        if (handler) handler();
    }

    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};
