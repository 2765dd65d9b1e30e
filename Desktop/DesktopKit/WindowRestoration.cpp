#include "DesktopKit/WindowRestoration.h"

#include "StateKit/Disk.h"
#include "StateKit/Log.h"

#include <QEvent>

#include <algorithm>
#include <exception>

namespace {

constexpr Seconds quietTime = 0.25;
constexpr std::size_t mostWindows = 200;
constexpr char nameSpace[] = "app";

const Log windowLog("zorvane.Vimble", "WindowRestoration");

/// Updates a record from its window. @return whether that changed anything
bool update(WindowRecord& record, const QWidget& window) {
    const WindowRecord before = record;
    record.isOpen = window.isVisible();
    record.isMinimized = record.isOpen && window.isMinimized();
    // A hidden window keeps the frame that it had on the screen.
    if (record.isOpen && !record.isMinimized) record.frame = window.saveGeometry().toBase64().toStdString();
    return !(record == before);
}

}  // namespace

WindowRestoration::WindowRestoration(MainLoop& loop, std::filesystem::path folder)
    : folder(std::move(folder)), heartbeat(Heartbeat::make(loop, quietTime)) {
    heartbeat->subscribe(*this, &WindowRestoration::write);
    try {
        last = Disk(this->folder, nameSpace).load<WindowRecords>().windows;
    } catch (const DiskError& error) {
        // Go on: it does no harm that windows open at their usual places. But log that the file was lost.
        if (!error.isMissing) windowLog.error(error.what());
    }
    if (last.size() > mostWindows) last.resize(mostWindows);
    written.windows = last;
}

const WindowRecord* WindowRestoration::remembered(const std::string& identifier) const {
    const auto found = std::find_if(last.begin(), last.end(),
                                    [&](const WindowRecord& record) { return record.identifier == identifier; });
    return found == last.end() ? nullptr : &*found;
}

bool WindowRestoration::place(QWidget& window, const WindowRecord& record) {
    if (record.frame.empty()) return false;
    return window.restoreGeometry(QByteArray::fromBase64(QByteArray::fromStdString(record.frame)));
}

void WindowRestoration::watch(QWidget& window, const std::string& identifier, const std::string& withKey) {
    WindowRecord record;
    // A talk's window has another identifier in each run, so find its record by the talk.
    const auto earlier = std::find_if(last.begin(), last.end(), [&](const WindowRecord& each) {
        return withKey.empty() ? each.identifier == identifier : each.withKey == withKey;
    });
    if (earlier != last.end()) record = *earlier;
    record.identifier = identifier;
    record.withKey = withKey;
    record.isOpen = window.isVisible();
    watched.push_back({&window, std::move(record)});
    window.installEventFilter(this);
    connect(&window, &QObject::destroyed, this, [this](QObject* gone) { forget(gone); });
    changed();
}

void WindowRestoration::keep(const std::string& identifier) { kept.push_back(identifier); }

void WindowRestoration::finish() {
    if (isFinished) return;
    for (Watched& each : watched)
        if (each.window) update(each.record, *each.window);
    write();
    isFinished = true;
}

bool WindowRestoration::eventFilter(QObject* object, QEvent* event) {
    switch (event->type()) {
        case QEvent::Show:
        case QEvent::Hide:
        case QEvent::Move:
        case QEvent::Resize:
        case QEvent::WindowStateChange: {
            const auto found = std::find_if(watched.begin(), watched.end(),
                                            [object](const Watched& each) { return each.window == object; });
            if (!isFinished && found != watched.end() && update(found->record, *found->window)) changed();
            break;
        }
        default: break;
    }
    return QObject::eventFilter(object, event);
}

void WindowRestoration::forget(const QObject* window) {
    if (isFinished) return;
    // The guarded pointers to an object that is being destroyed are null already.
    std::erase_if(watched, [window](const Watched& each) { return !each.window || each.window == window; });
    changed();
}

void WindowRestoration::changed() { heartbeat->beat(); }

void WindowRestoration::write() {
    if (isFinished) return;
    WindowRecords now;
    for (const Watched& each : watched) now.windows.push_back(each.record);
    for (const std::string& identifier : kept) {
        const bool isWatched = std::any_of(watched.begin(), watched.end(),
                                           [&](const Watched& each) { return each.record.identifier == identifier; });
        const WindowRecord* record = remembered(identifier);
        if (!isWatched && record != nullptr) now.windows.push_back(*record);
    }
    if (now == written) return;
    try {
        Disk(folder, nameSpace).save(now);
        written = std::move(now);
    } catch (const std::exception& error) {
        windowLog.error(error.what());
    }
}
