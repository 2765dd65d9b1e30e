#pragma once

#include "ScanKit/GreyFrame.h"

#include <functional>

/// Why a camera gives no pictures.
enum class CameraTrouble {
    noCamera,   // there is none, or it was unplugged
    notOpened,  // there is one, but it could not be opened: another program may have it
};

/// A camera, as the scanner sees it: one frame after the other, in grey.
///
/// Main thread only. No handler runs within `start` or `stop`, and none after `stop`. A handler may call `stop` or
/// `start`, and may destroy the source. Destroying it stops it.
class FrameSource {
public:
    struct Handlers {
        /// A new frame. Frames that come while the main thread is busy are dropped but for the newest.
        std::function<void(SharedFrame)> didCapture;
        /// No more frames for now. After `noCamera` the source waits for one to be plugged in, and frames come
        /// when there is one; after `notOpened` it does nothing until it is started again.
        std::function<void(CameraTrouble)> didFail;
    };

    virtual ~FrameSource() = default;

    /// Opens the camera; anew, if it was started before.
    virtual void start(Handlers handlers) = 0;
    /// Lets go of the camera, so that its light goes out.
    virtual void stop() = 0;
};
