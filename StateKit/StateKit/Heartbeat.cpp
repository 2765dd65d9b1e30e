#include "StateKit/Heartbeat.h"

namespace {

/// No request waits longer than this for its firing.
constexpr Seconds bound = 30;

}  // namespace

Heartbeat::Heartbeat(MainLoop& loop, Seconds interval, std::optional<Seconds> maxDelay)
    : interval(interval), maxDelay(maxDelay), loop(loop), fired(loop) {}

std::shared_ptr<Heartbeat> Heartbeat::make(MainLoop& loop, Seconds interval, std::optional<Seconds> maxDelay) {
    return std::shared_ptr<Heartbeat>(new Heartbeat(loop, interval, maxDelay));
}

void Heartbeat::beat(std::function<void()> completion) {
    // Hold on to this object: the timer that is cancelled below may own the last other reference to it.
    const std::shared_ptr<Heartbeat> self = shared_from_this();
    if (timer) {
        loop.cancelTimer(*timer);
        timer.reset();
    }
    if (firstReq && *firstReq < loop.now() - bound) {
        fire(completion);
        return;
    }
    if (!firstReq) firstReq = loop.now();
    timer = loop.startTimer(interval, [self, completion = std::move(completion)] {
        self->timer.reset();
        self->fire(completion);
    });
}

void Heartbeat::fire(const std::function<void()>& completion) {
    firstReq.reset();
    fired.send();
    if (completion) completion();
}
