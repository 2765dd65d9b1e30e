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
/// A good code freezes the picture at the frame that carried it and lets go of the camera; after a bad one scanning
/// goes on, and the same code may be asked about again with the next frame. What a code means is the owner's
/// business.
///
/// Looking for a code takes longer than a frame lasts, so it is done by a worker, one frame at a time; of
/// those that come meanwhile only the newest is kept. The picture is live all the same. Main thread only.
///
/// A camera that can't be opened, or that sends nothing for `silence`, is tried again after `pause`, for as long as
/// the scanner runs.
class QRScanner {
public:
    enum class Status {
        stopped,
        starting,   // no frame yet
        live,       // frames come
        frozen,     // at the frame with the good code
        noCamera,   // none; goes on when one is plugged in
        notOpened,  // the camera could not be opened; is tried again
        silent,     // the camera is open and sends nothing; is tried again
    };

    /// Each may stop or start the scanner, or destroy it.
    struct Handlers {
        /// Whether the payload is good. It may be a secret, and holds for the call only.
        std::function<bool(std::string_view payload)> accept;
        /// `picture` or `status` is another.
        std::function<void()> didChange;
    };

    /// Seconds without a frame after which a camera counts as silent. A camera's own start takes one or two, and that
    /// of its process as long as `WatchedCamera::patience` on a busy machine: stopping it before would have it begin
    /// again and again.
    static constexpr Seconds silence = 12;
    /// Seconds before a camera that failed is tried again.
    static constexpr Seconds pause = 3;

    /// @param loop        must outlive the scanner and the worker
    /// @param worker      shared with whoever else has work for it
    QRScanner(MainLoop& loop, std::shared_ptr<Worker> worker, std::unique_ptr<FrameSource> camera);
    ~QRScanner();
    QRScanner(const QRScanner&) = delete;
    QRScanner& operator=(const QRScanner&) = delete;

    void setHandlers(Handlers handlers);

    /// Clears the picture and starts the camera; anew, if it is running or frozen.
    void start();
    /// Stops the camera and clears the picture. No code that was still being looked for is asked about.
    void stop();
    /// Stops the camera and stays at this picture, as after a good code: for one that came another way.
    /// @param picture  may be null
    void freeze(SharedFrame picture);

    Status status() const { return _status; }
    /// What is to be shown; null for nothing.
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
    SharedFrame waiting;     // the newest that came while another is looked at
    bool isLooking = false;  // in this run
    std::uint64_t run = 0;   // names the time between a start and its end; an answer of an earlier one is dropped
    std::optional<Timer> timer;
    std::shared_ptr<bool> life = std::make_shared<bool>(true);  // held weakly by what may come too late
};
