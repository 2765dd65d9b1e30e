#pragma once

#include "ScanKit/CameraProgram.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

/// The camera program as a child of this process, which talks over a socket that only the two have.
///
/// It is started in a later turn of the loop, so that a window that asks for it is shown first, and killed by
/// `stop`; what the system keeps of it is collected later, without waiting. It gets nothing to hold but its socket
/// and the standard error, and ends by itself when this process is gone, since the socket closes then.
///
/// What it sends is not trusted (`CameraStream`). It is read bit by bit, at most one frame in a turn of the loop; a
/// reader that is late holds the writer up. Make it after the `QCoreApplication`, and start it on the main thread: a
/// child may be tied to the thread that has started it.
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
