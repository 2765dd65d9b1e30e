#pragma once

#include "DesktopKit/WindowRecord.h"
#include "StateKit/Heartbeat.h"
#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <QObject>
#include <QPointer>
#include <QWidget>

/// Remembers which windows are open and where, so that they come back at the next start.
///
/// It writes every change (a quarter of a second after the last one, since a window that is being dragged
/// moves all the time), so that nothing is lost if the program dies. The file is "app/WindowRecords.json" in
/// the application's folder; if it can't be read, nothing is remembered. At most 200 windows are read.
///
/// Main thread only. Windows may die while they are watched.
class WindowRestoration : public QObject, public SignalTarget {
public:
    WindowRestoration(MainLoop& loop, std::filesystem::path folder);

    /// The records that the last run of the program has left.
    const std::vector<WindowRecord>& remembered() const { return last; }
    /// The record with that identifier; null if there is none.
    const WindowRecord* remembered(const std::string& identifier) const;

    /// Puts a window where it was, without showing it. @return false if the record has no frame, or one that
    /// can't be read
    static bool place(QWidget& window, const WindowRecord& record);

    /// Follows a window from now on. A window that is destroyed is forgotten; one that is only hidden keeps its
    /// frame. Until the window is first seen, the frame of the last run's record (with the same identifier, or
    /// of the same talk) is kept: a window that comes back minimised has no frame of its own yet.
    void watch(QWidget& window, const std::string& identifier, const std::string& withKey = {});

    /// Keeps the last run's record of a window even if it is not made in this run.
    void keep(const std::string& identifier);

    /// Writes now, and then follows nothing more: at the end of the program all windows close, but those that
    /// were open must come back.
    void finish();

    bool eventFilter(QObject* object, QEvent* event) override;

private:
    struct Watched {
        QPointer<QWidget> window;
        WindowRecord record;
    };

    void forget(const QObject* window);
    void changed();
    void write();

    const std::filesystem::path folder;
    std::vector<WindowRecord> last;
    std::vector<Watched> watched;
    std::vector<std::string> kept;
    std::shared_ptr<Heartbeat> heartbeat;  // its pending timer keeps it alive too
    WindowRecords written;
    bool isFinished = false;
};
