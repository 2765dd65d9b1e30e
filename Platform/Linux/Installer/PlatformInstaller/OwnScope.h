#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QSet>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <sys/types.h>

/// Gives a started application a unit of its own in the user's service manager, where there is one.
///
/// A session bus may start this service as a unit of the service manager, and what the service starts belongs to that
/// unit too: it is counted there, and is ended with it. As a scope of its own an application stands as if its user had
/// started it. Without such a manager on the bus nothing is done, and the application belongs where this process does.
///
/// Of one thread, with an event loop of Qt; `give` is for another one.
class OwnScope : public QObject {
    Q_OBJECT

public:
    /// For each of the two steps: asking, and waiting until it is done.
    static constexpr std::chrono::seconds patience{2};

    /// @param bus  the session's
    explicit OwnScope(const QDBusConnection& bus);

    /// Blocks until the process stands in its scope "app-APPLICATION-PROCESS.scope", or that can't be had. Never throws:
    /// the application runs all the same, and the log says what went wrong.
    /// @param applicationId  the application's identifier, such as "zorvane.Vimble"
    void give(pid_t process, const QString& applicationId);

private Q_SLOTS:
    void jobRemoved(const QDBusMessage& message);

private:
    QDBusConnection bus;
    std::mutex mutex;
    std::condition_variable changed;
    QSet<QString> ended;  // the paths of jobs
};
