#pragma once

#include "StateKit/MainLoop.h"

#include <memory>

class QThread;

/// The thread on which the update coordinator lives, with an event loop of its own, so that work that blocks there
/// for a while freezes no window.
///
/// Made and destroyed on one thread, after the QCoreApplication and before its end.
class UpdateThread {
public:
    /// Waits until the loop turns.
    UpdateThread();
    /// Waits until all that was posted before is done.
    ~UpdateThread();
    UpdateThread(const UpdateThread&) = delete;
    UpdateThread& operator=(const UpdateThread&) = delete;

    /// It lives as long as this object. Its `isMainThread` asks whether the caller is on this object's thread.
    MainLoop& loop() { return *_loop; }

private:
    class Thread;
    std::unique_ptr<Thread> thread;
    MainLoop* _loop = nullptr;
};
