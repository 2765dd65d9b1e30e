#pragma once

#include "ScanKit/FrameSource.h"
#include "StateKit/MainLoop.h"
#include "StateKit/Worker.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// A scanning session: takes the frames of a camera, looks for codes in them, and asks whether a code is good.
///
/// A good code freezes the picture at the frame that held it and releases the camera; after a bad one scanning
/// goes on, and the same code may be asked about again with the next frame. The owner decides which codes are good.
///
/// Looking for a code takes longer than the time between two frames, so a worker does it, one frame at a time; of
/// the frames that come meanwhile only the newest is looked at next. The picture shows every frame. Main thread only.
///
/// A camera that can't be opened, or that sends nothing for `silence`, is started again after `pause`, for as long
/// as the scanner runs.
class QRScanner {
public:
    enum class Status {
        stopped,
        starting,   // no frame yet
        live,       // frames come
        frozen,     // at the frame with the good code, or at a given picture
        noCamera,   // there is no camera; goes on when one is plugged in
        notOpened,  // the camera could not be opened; it will be started again
        silent,     // the camera was open and sent nothing; it will be started again
    };

    /// Each handler may stop or start the scanner, or destroy it.
    struct Handlers {
        /// Returns whether the payload is good. It may be a secret, and is valid only during the call.
        std::function<bool(std::string_view payload)> accept;
        /// Called when `picture` or `status` has changed.
        std::function<void()> didChange;
    };

    /// Seconds without a frame after which a camera counts as silent. The camera takes one or two to start, and its
    /// process up to `WatchedCamera::patience` on a busy machine: a shorter silence would stop and start a slow
    /// camera for ever.
    static constexpr Seconds silence = 12;
    /// Seconds before a camera that failed is started again.
    static constexpr Seconds pause = 3;

    /// @param loop        must outlive the scanner and the worker
    /// @param worker      may be shared with others that have work for it
    QRScanner(MainLoop& loop, std::shared_ptr<Worker> worker, std::unique_ptr<FrameSource> camera);
    ~QRScanner();
    QRScanner(const QRScanner&) = delete;
    QRScanner& operator=(const QRScanner&) = delete;

    void setHandlers(Handlers handlers);

    /// Clears the picture and starts the camera, also if the scanner is running or frozen already.
    void start();
    /// Stops the camera and clears the picture. A code that is found in a frame from before is not asked about.
    void stop();
    /// Stops the camera and shows a picture that came another way, as after a good code.
    /// @param picture  may be null
    void freeze(SharedFrame picture);

    Status status() const { return _status; }
    /// The picture to show; null for none.
    const SharedFrame& picture() const { return _picture; }

private:
    struct Answer;

    void startCamera();
    void take(SharedFrame frame);
    void fail(CameraTrouble trouble);
    void watchFor(Seconds delay, Status atEnd);
    void look(SharedFrame frame);
    void judge(const Answer& answer);
    void end(Status status, SharedFrame picture);
    void show(Status status, SharedFrame picture);

    MainLoop& loop;
    std::shared_ptr<Worker> worker;
    std::unique_ptr<FrameSource> camera;
    Handlers handlers;
    Status _status = Status::stopped;
    SharedFrame _picture;
    SharedFrame waiting;     // the newest frame that came while the worker looks at another
    bool isLooking = false;  // whether the worker has a frame of this run
    std::uint64_t run = 0;   // a number for the time from a start to its end; answers from earlier runs are dropped
    std::optional<Timer> timer;
    std::shared_ptr<bool> life = std::make_shared<bool>(true);  // callbacks that may outlive the scanner hold it weakly
};
