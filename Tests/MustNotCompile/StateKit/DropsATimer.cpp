// refused: ignoring (temporary created by a constructor|return value of 'Timer::Timer).*nodiscard
// A timer that nobody holds is called off within the line that makes it.
#include "StateKit/MainLoop.h"

#include <optional>

void later(MainLoop& loop, std::optional<Timer>& timer, std::function<void()> action) {
#ifdef REPAIRED
    timer.emplace(loop, 1.0, std::move(action));
#else
    Timer(loop, 1.0, std::move(action));
    timer.reset();
#endif
}
