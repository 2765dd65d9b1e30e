#pragma once

#include "ScanKit/FrameSource.h"

#include <optional>
#include <utility>

/// A camera that sees what the test shows it.
class FakeCamera : public FrameSource {
public:
    /// By this the test drives a camera that the code under test owns.
    struct Remote {
        std::optional<Handlers> handlers;  // set while the camera runs
        int starts = 0;
        bool isRunning() const { return handlers.has_value(); }

        /// Only while the camera runs; otherwise throws.
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
