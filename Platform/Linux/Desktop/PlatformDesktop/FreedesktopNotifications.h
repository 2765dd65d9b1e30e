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

/// Shows notifications through the desktop's service `org.freedesktop.Notifications`.
///
/// Every call is asynchronous: the window never waits for the service, and a failure costs only the bubble. The
/// service is asked for its capabilities once, before the first bubble; things that it can't do are left out (see
/// `NotificationBubble`). The icon is given by name if it is installed, else as a picture of the application's window
/// icon.
///
/// When the running service ends, its bubbles and all notifications that wait for it are forgotten, and the next
/// service is asked for its capabilities. Signals about the bubbles of other programs are ignored.
///
/// Limits: `mostInFlight` calls that the service has not answered, each for `patience`; `mostWaiting` notifications
/// that wait behind them (one more drops the oldest); `mostShown` open bubbles (one more closes the oldest).
///
/// Main thread, while a QGuiApplication lives. Destroying this object drops pending notifications; those on the
/// screen stay there.
class FreedesktopNotifications : public QObject, public NotificationCenter {
    Q_OBJECT

public:
    static constexpr std::size_t mostInFlight = 16;
    static constexpr std::size_t mostWaiting = 1000;
    static constexpr std::size_t mostShown = 1000;
    static constexpr int patience = 60000;  // milliseconds

    /// @param loop  must outlive this object
    /// @param bus  usually the session bus
    explicit FreedesktopNotifications(MainLoop& loop, QDBusConnection bus = QDBusConnection::sessionBus());
    ~FreedesktopNotifications() override;

    /// Sets a handler for a click on one of our bubbles. It gets the token that lets a window come forward, which is
    /// empty if the service gave none. The handler may destroy this object.
    void onActivated(std::function<void(const ActivationToken&)> handler);

    /// Does nothing: these services ask for no permission.
    void requestAuthorization() override {}
    void add(UserNotification notification, Seconds delay) override;
    void removeAllPending() override;
    /// Removes also the notifications that wait for the service. Bubbles whose number the service has not told yet are
    /// closed as soon as it does.
    void removeAllDelivered() override;

private Q_SLOTS:
    void closed(uint id, uint reason);
    void tokenGiven(uint id, const QString& token);
    void actionInvoked(uint id, const QString& key);
    void ownerChanged(const QString& name, const QString& before, const QString& after);

private:
    enum class Asking { notAsked, asked, answered };
    /// A call of Notify that the service has not answered.
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

    // These belong to the service that runs, and are reset when it ends.
    Asking asking = Asking::notAsked;
    std::uint64_t service = 0;  // counts the services; answers from an earlier one are dropped
    NotificationAbilities abilities;
    std::deque<UserNotification> waiting;
    std::list<Sent> inFlight;
    std::deque<uint> shown;          // the oldest first
    std::pair<uint, QString> token;  // the last token, and the bubble that it was given for
};
