#pragma once

#include "UpdateKit/InstallerReply.h"
#include "UpdateKit/InstallerRequest.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <thread>

/// The installer service's end of the session bus: takes one request, has it worked off, answers, and is done.
///
/// Every caller is heard: whether an update may be installed is decided by comparing signatures. While one
/// request is worked off another gets an answer that says so. The name is given back before the answer goes out,
/// so that whoever asks then meets a new service, started from what has just been installed; for the same reason
/// a service ends that nobody has asked for a while, or that has lost its bus (once the work is done).
///
/// Of one thread, with an event loop of Qt; the work is done on a thread of its own, which the destructor waits for.
class InstallerXPCListener : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "zorvane.UpdateKit.Installer")

public:
    static constexpr std::chrono::seconds idleTime{30};

    /// Blocks for as long as it takes, on the worker's thread. Never throws.
    using Work = std::function<InstallerReply(const InstallerLaunchRequest&)>;

    /// @param ended  told once, in the event loop, when there is nothing left to do
    /// @param idle  how long to wait for the one request
    InstallerXPCListener(const QDBusConnection& bus, Work work, std::function<void()> ended,
                         std::chrono::milliseconds idle = idleTime);
    ~InstallerXPCListener() override;

    /// Takes the name on the bus. @return why that did not work; empty if it did
    QString listen(const QString& serviceName);

public Q_SLOTS:
    /// The call of `InstallerXPC`, answered later.
    QStringList InstallUpdate(const QString& stagedAppUrl, const QString& currentAppUrl, int currentProcessIdentifier,
                              bool& shouldPresentToUser);

private Q_SLOTS:
    void busHasGone();

private:
    void begin(const InstallerLaunchRequest& request, const QDBusMessage& call);
    void finish(const QDBusMessage& call, const InstallerReply& reply);
    void end();

    QDBusConnection bus;
    const Work work;
    std::function<void()> ended;
    QString name;
    bool isBusy = false;
    std::thread worker;
};
