#pragma once

#include "StateKit/MainLoop.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>

/// Watches the rate of a transfer, since one that has become too slow will not end in any useful time.
///
/// Too slow is less than `least` bytes a second over any 60 seconds, checked every 5 seconds. One thread only.
class TransferRate {
public:
    static constexpr std::uint64_t least = 4 * 1024;  // bytes a second
    static constexpr Seconds window = 60;
    static constexpr Seconds step = 5;

    /// @param loop  must outlive this object
    /// @param onStep  called at each check, with the number of all bytes that have come
    /// @param onTooSlow  called once; may destroy this object
    TransferRate(MainLoop& loop, std::function<void(std::uint64_t total)> onStep, std::function<void()> onTooSlow);

    void add(std::uint64_t bytes) { total += bytes; }

private:
    void schedule();
    void look();

    MainLoop& loop;
    const std::function<void(std::uint64_t)> onStep;
    const std::function<void()> onTooSlow;
    std::uint64_t total = 0;
    std::deque<std::uint64_t> totals{0};  // at each check within the window, the oldest first
    std::optional<Timer> timer;
};
