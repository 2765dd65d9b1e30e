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
/// unit too: it is counted there, and is ended with it. In a scope of its own, an application is as if its user had
/// started it. Without such a manager on the bus nothing is done, and the application stays in this process's unit.
///
/// Used on one thread, with an event loop of Qt; only `give` is called on another one.
class OwnScope : public QObject {
    Q_OBJECT

public:
    /// The time limit of each of the two steps: asking, and waiting until the job is done.
    static constexpr std::chrono::seconds patience{2};

    /// @param bus  the session's
    explicit OwnScope(const QDBusConnection& bus);

    /// Blocks until the process is in its scope "app-APPLICATION-PROCESS.scope", or until that has failed. Never
    /// throws: without a scope the application runs too, and the log says what went wrong.
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
