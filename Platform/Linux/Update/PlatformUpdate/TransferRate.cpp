#include "PlatformUpdate/TransferRate.h"

#include <utility>

TransferRate::TransferRate(MainLoop& loop, std::function<void(std::uint64_t)> onStep, std::function<void()> onTooSlow)
    : loop(loop), onStep(std::move(onStep)), onTooSlow(std::move(onTooSlow)) {
    schedule();
}

void TransferRate::schedule() {
    timer.emplace(loop, step, [this] { look(); });
}

void TransferRate::look() {
    constexpr auto steps = static_cast<std::size_t>(window / step);
    constexpr auto wanted = static_cast<std::uint64_t>(window) * least;
    totals.push_back(total);
    if (totals.size() > steps + 1) totals.pop_front();
    if (totals.size() == steps + 1 && total - totals.front() < wanted) {
        const auto tell = onTooSlow;
        tell();
        return;
    }
    schedule();
    const auto tell = onStep;
    tell(total);
}
