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

/// The installer service's end of the session bus: takes one request, has it carried out, answers, and is done.
///
/// Requests are taken from every caller, since it is the signatures that decide whether an update may be installed.
/// While one request is carried out, another gets an answer that says so. The name is given back before the answer
/// goes out, so that a later caller meets a new service, started from what has just been installed. For the same
/// reason the service ends if nobody has asked it for a while, or if it has lost its bus (once the work is done).
///
/// Used on one thread, with an event loop of Qt; the work is done on a thread of its own, which the destructor waits
/// for.
class InstallerXPCListener : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "zorvane.UpdateKit.Installer")

public:
    static constexpr std::chrono::seconds idleTime{30};

    /// Carries out a request. Runs on the worker's thread, blocks for as long as it takes, and never throws.
    using Work = std::function<InstallerReply(const InstallerLaunchRequest&)>;

    /// @param ended  called once, in the event loop, when there is nothing left to do
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
