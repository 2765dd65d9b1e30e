#pragma once

#include "ScanKit/CameraProgram.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

/// The camera program as a child of this process. The two talk over a socket that nobody else has.
///
/// The child is started in a later turn of the loop, so that a window that needs it is shown first. `stop` kills it;
/// its zombie is collected later, without waiting. It inherits only its socket and the standard error, and ends by
/// itself when this process is gone, since the socket closes then.
///
/// What it sends is not trusted (`CameraStream`). At most one frame is read in a turn of the loop; when we read late,
/// the writer has to wait. Make this object after the `QCoreApplication`, and start it on the main thread: a child
/// may ask to be killed when the thread that started it ends.
class CameraProcess : public CameraProgram {
public:
    explicit CameraProcess(std::filesystem::path executable, std::vector<std::string> arguments = {});
    ~CameraProcess() override;

    void start(Handlers handlers) override;
    void stop() override;

    /// The camera program that is installed beside this one, `vimble-camera`.
    static std::filesystem::path installed();

private:
    class Session;

    std::filesystem::path executable;
    std::vector<std::string> arguments;
    std::unique_ptr<Session> session;
};
