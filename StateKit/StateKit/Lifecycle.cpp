#include "StateKit/Lifecycle.h"

#include "Base/Check.h"

#include <utility>

namespace {

std::function<std::unique_ptr<Lifecycle>()>& sharedMaker() {
    static std::function<std::unique_ptr<Lifecycle>()> maker;
    return maker;
}

}  // namespace

Lifecycle::Lifecycle(MainLoop& loop, std::unique_ptr<ActivityMonitor> activity)
    : subs(loop), activity(std::move(activity)) {
    const auto sending = [weak = Weak<Lifecycle>(this)](Event event) {
        return [weak, event] {
            if (const Lifecycle* lifecycle = weak.get()) lifecycle->subs.send(event);
        };
    };
    this->activity->observe({.didBecomeActive = sending(Event::enteredForeground),
                             .willResignActive = sending(Event::enteredBackground),
                             .willTerminate = sending(Event::terminated)});
}

void Lifecycle::configureShared(std::function<std::unique_ptr<Lifecycle>()> make) { sharedMaker() = std::move(make); }

Lifecycle& Lifecycle::shared() {
    static const std::unique_ptr<Lifecycle> instance = [] {
        check(bool(sharedMaker()), "Lifecycle.shared was used before it was configured");
        return sharedMaker()();
    }();
    return *instance;
}
