#pragma once

#include "ScanKit/CameraStream.h"

#include <QObject>
#include <QSocketNotifier>

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>

/// Sends frames as fast as the reader takes them.
///
/// A message that was begun is written to its end; of the frames that come meanwhile only the newest is kept, and the
/// others are dropped. Main thread only, except `put`.
class FrameWriter : public QObject {
    Q_OBJECT

public:
    /// @param file    made non-blocking; stays the caller's. The caller ignores SIGPIPE, which would otherwise kill the
    ///                process when the reader has gone
    /// @param isOver  called once, on the main thread, when the reader has gone or the file can't be written
    FrameWriter(int file, std::function<void()> isOver);
    ~FrameWriter() override;

    /// Sends a frame. Call it from any thread, while the writer lives. Null is ignored.
    void put(SharedFrame frame);
    /// Sends a message that is no frame. It goes before a frame that waits. `alive` is left out while another message
    /// is being sent, which shows the same.
    void say(CameraMessage::Kind word);

private:
    void write();
    bool next();

    const int file;
    std::function<void()> isOver;
    QSocketNotifier notifier;

    std::mutex mutex;  // guards `newest` and `isCalled`
    SharedFrame newest;
    bool isCalled = false;  // whether `put` has queued a call of `write`

    std::optional<CameraMessage::Kind> word;  // waits to be sent
    std::optional<CameraMessage> current;     // is being sent
    CameraStream::Header header{};            // the header of `current`
    std::size_t written = 0;                  // bytes of header and pixels that were written
};
