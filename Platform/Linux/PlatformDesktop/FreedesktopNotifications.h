#pragma once

#include "AttentionKit/NotificationCenter.h"
#include "PlatformDesktop/NotificationBubble.h"
#include "PlatformDesktop/WindowActivation.h"
#include "StateKit/MainLoop.h"

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <utility>

/// Notifications by the desktop's service `org.freedesktop.Notifications`.
///
/// Every call is asynchronous: the window never waits for the service, and a failure costs the bubble and nothing
/// else. The service is asked for its capabilities once, before the first bubble; what it can't do is left out (see
/// `NotificationBubble`). The icon goes by its name where it is installed, and as a picture, the application's window
/// icon, where it is not.
///
/// What the service knows of us belongs to one running service: when that goes, its bubbles and all that waits for it
/// are forgotten, and the next one is asked anew. Signals about the bubbles of other programs are ignored.
///
/// Limits: `mostInFlight` calls that the service has not answered, each for `patience`; `mostWaiting` notifications
/// behind them, of which the oldest is dropped for one more; `mostShown` open bubbles, of which the oldest is closed
/// for one more.
///
/// Main thread, with a QGuiApplication, and before it ends. Destroying this drops what is pending, and leaves on the
/// screen what is shown.
class FreedesktopNotifications : public QObject, public NotificationCenter {
    Q_OBJECT

public:
    static constexpr std::size_t mostInFlight = 16;
    static constexpr std::size_t mostWaiting = 1000;
    static constexpr std::size_t mostShown = 1000;
    static constexpr int patience = 60000;  // milliseconds

    /// @param loop  must outlive this
    /// @param bus  usually the session bus
    explicit FreedesktopNotifications(MainLoop& loop, QDBusConnection bus = QDBusConnection::sessionBus());
    ~FreedesktopNotifications() override;

    /// Called when the user clicks one of our bubbles, with what lets a window come forward; the token is empty where
    /// the service gave none. The handler may destroy this.
    void onActivated(std::function<void(const ActivationToken&)> handler);

    /// Nothing: this desktop asks nobody.
    void requestAuthorization() override {}
    void add(UserNotification notification, Seconds delay) override;
    void removeAllPending() override;
    /// Also those that wait for the service, and those of which it has not yet said under which number it shows them:
    /// they are closed as soon as it does.
    void removeAllDelivered() override;

private Q_SLOTS:
    void closed(uint id, uint reason);
    void tokenGiven(uint id, const QString& token);
    void actionInvoked(uint id, const QString& key);
    void ownerChanged(const QString& name, const QString& before, const QString& after);

private:
    enum class Asking { notAsked, asked, answered };
    /// A bubble that the service has not answered for.
    struct Sent {
        bool isUnwanted = false;
    };

    void deliver(UserNotification notification);
    void askCapabilities();
    void sendWaiting();
    void send(const UserNotification& notification);
    void keep(uint id);
    void close(uint id);
    void forgetService();
    void addIcon(QString& name, QVariantMap& hints) const;

    MainLoop& loop;
    QDBusConnection bus;
    QDBusServiceWatcher watcher;
    std::function<void(const ActivationToken&)> activated;
    std::set<MainLoop::TimerId> pending;

    // Of the service that runs.
    Asking asking = Asking::notAsked;
    std::uint64_t service = 0;  // counts them
    NotificationAbilities abilities;
    std::deque<UserNotification> waiting;
    std::list<Sent> inFlight;
    std::deque<uint> shown;          // the oldest first
    std::pair<uint, QString> token;  // of the last bubble that was given one
};
