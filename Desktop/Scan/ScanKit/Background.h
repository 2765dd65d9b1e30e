#pragma once

#include <functional>

/// A place for work that would make the window slow, such as looking for a code in a picture.
///
/// Main thread only. One piece of work runs at a time, in the order in which it came. Work must not touch what
/// belongs to the main thread: it brings along what it needs, and posts its answer to the `MainLoop`.
class Background {
public:
    virtual ~Background() = default;
    virtual void run(std::function<void()> work) = 0;
};
