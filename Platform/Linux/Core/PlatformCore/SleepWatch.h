#pragma once

#include <QDBusConnection>
#include <QObject>

#include <functional>

/// Tells when this machine has woken from sleep: logind's PrepareForSleep, with false.
///
/// Without a bus, or without logind on it, it never tells. Main thread only.
class SleepWatch : public QObject {
    Q_OBJECT

public:
    /// @param bus  usually the system bus
    SleepWatch(QDBusConnection bus, std::function<void()> woke);

private Q_SLOTS:
    void prepareForSleep(bool isGoingToSleep);

private:
    std::function<void()> woke;
};
