#pragma once

#include "ScanKit/FrameSource.h"

#include <memory>

/// The default camera of this machine, through the toolkit's multimedia module: about 640 x 480, 15 to 30 frames a
/// second.
///
/// Which camera is the default is asked at every `start`, and again whenever one comes or goes: when the one in use
/// is unplugged, another takes its place, or `noCamera` is told. Making the first one of a process takes a while, since
/// the multimedia libraries are loaded then. Make it after the `QGuiApplication`.
class Camera : public FrameSource {
public:
    Camera();
    ~Camera() override;

    void start(Handlers handlers) override;
    void stop() override;

private:
    class Session;
    std::unique_ptr<Session> session;
};
