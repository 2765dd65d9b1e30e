#pragma once

#include "ScanKit/CameraProgram.h"
#include "ScanKit/FrameSource.h"
#include "StateKit/MainLoop.h"

#include <memory>
#include <optional>

/// A camera that may crash or hang without harm: it is in a process of its own, and this one watches over that.
///
/// A process that ends by itself is replaced at once: it does so too when its camera is unplugged, since what the
/// multimedia libraries do then is not to be trusted, and the next one finds the camera that is left, or says that
/// there is none. Only when the replacement does not live for `steady` is the camera told to be `notOpened`. A
/// process that says nothing for `patience` counts as ended.
class WatchedCamera : public FrameSource {
public:
    /// Seconds that a replacement has to live, so that a process that always crashes is not started without end.
    static constexpr Seconds steady = 3;
    /// Seconds without a word. Loading the multimedia libraries on a busy machine takes some.
    static constexpr Seconds patience = 10;

    /// @param loop  must outlive the camera
    WatchedCamera(MainLoop& loop, std::unique_ptr<CameraProgram> program);
    ~WatchedCamera() override;
    WatchedCamera(const WatchedCamera&) = delete;
    WatchedCamera& operator=(const WatchedCamera&) = delete;

    void start(Handlers handlers) override;
    void stop() override;

private:
    void run();
    void take(CameraMessage message);
    void replace();
    void tell(CameraTrouble trouble);

    MainLoop& loop;
    std::unique_ptr<CameraProgram> program;
    Handlers handlers;
    std::optional<Timer> silence;      // while the program runs
    std::optional<Timer> replacement;  // while the one that runs has still to prove itself
};
