#pragma once

#include "ScanKit/CameraProgram.h"
#include "ScanKit/FrameSource.h"
#include "StateKit/MainLoop.h"

#include <memory>
#include <optional>

/// A camera whose software may crash or hang without harm: it runs in a process of its own, which this class watches.
///
/// A process that ends by itself is replaced at once. It also ends when its camera is unplugged, since the
/// multimedia libraries can't be trusted after that; the new process finds another camera, or says that there is
/// none. Only if the replacement ends within `steady` does the camera fail with `notOpened`. A process that sends
/// nothing for `patience` counts as ended.
class WatchedCamera : public FrameSource {
public:
    /// Seconds that a replacement must live before another one is made: a process that always crashes must not be
    /// started for ever.
    static constexpr Seconds steady = 3;
    /// Seconds without a message. On a busy machine, loading the multimedia libraries takes a few.
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
    std::optional<Timer> silence;      // set while the program runs
    std::optional<Timer> replacement;  // set while the running program is a replacement younger than `steady`
};
