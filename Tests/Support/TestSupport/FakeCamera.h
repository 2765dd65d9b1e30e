#pragma once

#include "ScanKit/FrameSource.h"

#include <optional>
#include <utility>

/// A camera that sees what the test shows it.
class FakeCamera : public FrameSource {
public:
    /// What the test holds of a camera that somebody else owns.
    struct Remote {
        std::optional<Handlers> handlers;  // while it runs
        int starts = 0;
        bool isRunning() const { return handlers.has_value(); }

        /// Only while it runs, as with any camera.
        void send(SharedFrame frame) const {
            const auto tell = handlers.value().didCapture;
            tell(std::move(frame));
        }
        void fail(CameraTrouble trouble) const {
            const auto tell = handlers.value().didFail;
            tell(trouble);
        }
    };

    /// @param remote  outlives the camera
    explicit FakeCamera(Remote& remote) : remote(remote) {}
    ~FakeCamera() override { remote.handlers.reset(); }

    void start(Handlers handlers) override {
        remote.handlers = std::move(handlers);
        ++remote.starts;
    }
    void stop() override { remote.handlers.reset(); }

private:
    Remote& remote;
};
