#include "ScanKit/WatchedCamera.h"

#include <utility>

WatchedCamera::WatchedCamera(MainLoop& loop, std::unique_ptr<CameraProgram> program)
    : loop(loop), program(std::move(program)) {}

WatchedCamera::~WatchedCamera() { stop(); }

void WatchedCamera::start(Handlers newHandlers) {
    handlers = std::move(newHandlers);
    replacement.reset();
    run();
}

void WatchedCamera::stop() {
    silence.reset();
    replacement.reset();
    program->stop();
}

void WatchedCamera::run() {
    silence.emplace(loop, patience, [this] { replace(); });
    program->start({[this](CameraMessage message) { take(std::move(message)); }, [this] { replace(); }});
}

void WatchedCamera::take(CameraMessage message) {
    silence.emplace(loop, patience, [this] { replace(); });
    switch (message.kind) {
        case CameraMessage::Kind::alive: return;
        case CameraMessage::Kind::frame: {
            const auto tellFrame = handlers.didCapture;  // a copy, since the handler may destroy this camera
            return tellFrame(std::move(message.frame));
        }
        case CameraMessage::Kind::noCamera: return tell(CameraTrouble::noCamera);
        case CameraMessage::Kind::notOpened: stop(); return tell(CameraTrouble::notOpened);
    }
}

void WatchedCamera::replace() {
    if (replacement) {
        stop();
        return tell(CameraTrouble::notOpened);
    }
    replacement.emplace(loop, steady, [this] { replacement.reset(); });
    run();
}

void WatchedCamera::tell(CameraTrouble trouble) {
    const auto tellTrouble = handlers.didFail;  // a copy, since the handler may destroy this camera
    tellTrouble(trouble);
}
