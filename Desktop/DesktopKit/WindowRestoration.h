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
/// Written as it changes (a quarter of a second behind the last change, since a window that is being
/// dragged moves all the time), so that a program that dies forgets nothing. The file is
/// "app/WindowRecords.json" in the application's folder; one that can't be read counts as none. At most
/// 200 windows are read.
///
/// Main thread only. Windows may die while they are watched.
class WindowRestoration : public QObject, public SignalTarget {
public:
    WindowRestoration(MainLoop& loop, std::filesystem::path folder);

    /// What the last run of the program left.
    const std::vector<WindowRecord>& remembered() const { return last; }
    /// The one of that name; null if there is none.
    const WindowRecord* remembered(const std::string& identifier) const;

    /// Puts a window where it was, without showing it. @return false where nothing is known, or the frame
    /// can't be read
    static bool place(QWidget& window, const WindowRecord& record);

    /// Follows a window from now on. One that is destroyed is forgotten; one that is only hidden keeps its
    /// frame. What was remembered under the same identifier, or of the same talk, holds until the window is
    /// first seen: one that comes back minimised has no frame to tell yet.
    void watch(QWidget& window, const std::string& identifier, const std::string& withKey = {});

    /// Keeps what is remembered of a window that may not be made in this run.
    void keep(const std::string& identifier);

    /// Writes now, and follows no further: at the end of the program windows close that are to come back.
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
    std::shared_ptr<Heartbeat> heartbeat;  // keeps itself alive while it has something to do
    WindowRecords written;
    bool isFinished = false;
};
