#pragma once

#include "ScanKit/GreyFrame.h"

#include <functional>

/// Why a camera gives no pictures.
enum class CameraTrouble {
    noCamera,   // there is no camera, or it was unplugged
    notOpened,  // there is a camera, but it could not be opened: another program may have it
};

/// A camera, as the scanner sees it: one frame after the other, in grey.
///
/// Main thread only. No handler runs within `start` or `stop`, and none after `stop`. A handler may call `stop` or
/// `start`, and may destroy the source. Destroying it stops it.
class FrameSource {
public:
    struct Handlers {
        /// Called with a new frame. Of frames that come while the main thread is busy, only the newest is kept.
        std::function<void(SharedFrame)> didCapture;
        /// Called when no more frames will come for now. After `noCamera` the source waits until a camera is plugged
        /// in, and goes on with its frames; after `notOpened` it does nothing until it is started again.
        std::function<void(CameraTrouble)> didFail;
    };

    virtual ~FrameSource() = default;

    /// Opens the camera; if it was started before, it is opened anew.
    virtual void start(Handlers handlers) = 0;
    /// Releases the camera, so that its light goes out.
    virtual void stop() = 0;
};
