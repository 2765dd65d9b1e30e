#pragma once

#include "ScanKit/CameraStream.h"

#include <QObject>
#include <QSocketNotifier>

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>

/// Sends frames to a reader who sets the pace.
///
/// What is being written is written to its end; of what comes meanwhile only the newest frame waits, and the others
/// are dropped. Main thread only, but for `put`.
class FrameWriter : public QObject {
    Q_OBJECT

public:
    /// @param file    made non-blocking; stays the caller's. With a closed reader it must not kill: see SIGPIPE
    /// @param isOver  nobody reads any more, or the file can't be written; called once, on the main thread
    FrameWriter(int file, std::function<void()> isOver);
    ~FrameWriter() override;

    /// From any thread, as long as the writer lives. Null is no frame.
    void put(SharedFrame frame);
    /// A word that is no frame. It comes before a frame that waits, and `alive` is left out while something is on
    /// its way, which says as much.
    void say(CameraMessage::Kind word);

private:
    void write();
    bool next();

    const int file;
    std::function<void()> isOver;
    QSocketNotifier notifier;

    std::mutex mutex;  // guards these two
    SharedFrame newest;
    bool isCalled = false;

    std::optional<CameraMessage::Kind> word;  // waits
    std::optional<CameraMessage> current;     // on its way
    CameraStream::Header header{};            // of that one
    std::size_t written = 0;                  // of its header and pixels together
};
