#pragma once

#include "AttentionKit/NotificationCenter.h"
#include "AttentionKit/SoundPlayer.h"
#include "AttentionKit/Soundboard.h"
#include "AttentionKit/UserAttention.h"
#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "StateKit/UserDefaults.h"
#include "VimbleKit/Kit.h"
#include "VimbleKit/State.h"

#include <functional>
#include <optional>
#include <string>

/// What a `Notifier` needs. All references must outlive the notifier.
struct NotifierEnvironment {
    MainLoop& loop;
    Kit& kit;
    UserDefaults& userDefaults;
    SoundPlayer& sounds;
    NotificationCenter& notifications;
    UserAttention& attention;
};

/// Tells the user who came online and who wrote: by a sound, a notification, and a window that asks to be looked
/// at.
///
/// Users are not told of their own messages, and of nothing before the server's list has included them. A text
/// that contains the user's display name anywhere, in the same case, has a sound of its own. The three switches do
/// not affect the sounds, and are independent of each other; all are on until the user turns them off.
/// Notifications are posted also while the application is in front: how to show them is up to the desktop.
///
/// Main thread only. The notifier changes nothing in the session, which holds it weakly.
class Notifier : public SignalTarget {
public:
    /// The part of the session's state that a notifier needs.
    struct LocalState {
        using StateType = State;
        explicit LocalState(const State* state);

        std::optional<Person> user;
        std::optional<Endpoint> endpoint;

        bool operator==(const LocalState&) const = default;
    };

    /// Reads the switches, and does nothing until `start`.
    explicit Notifier(const NotifierEnvironment& environment);

    /// The process's notifier, made at the first use from the environment given to `configureShared`; never torn
    /// down.
    static Notifier& shared();
    /// Sets what makes the environment of the shared notifier. Call it once, before the first use.
    static void configureShared(std::function<NotifierEnvironment()> environment);

    /// Begins to follow the session. Only the first call has an effect.
    void start();
    /// Removes all notifications, pending or shown. Call it when the user has come back to the program.
    void clearNotifications();
    /// Call this when the program is ending. It removes all notifications, since a click on one would find no
    /// program, and posts no more. The notifier can't be started again.
    void stop();

    // ---- the switches; each setter writes to the user defaults

    /// Whether a window asks to be looked at when a message comes and the application is not in front.
    bool isBounceIconEnabled() const { return _isBounceIconEnabled; }
    void setBounceIconEnabled(bool isEnabled);
    /// Whether a notification is posted for a message.
    bool isChatNotificationsEnabled() const { return _isChatNotificationsEnabled; }
    void setChatNotificationsEnabled(bool isEnabled);
    /// Whether a notification is posted when somebody comes online.
    bool isJoinNotificationsEnabled() const { return _isJoinNotificationsEnabled; }
    void setJoinNotificationsEnabled(bool isEnabled);

    /// The session's state as last seen.
    const LocalState& state() const { return _state; }
    bool isObserving() const { return _isObserving; }

private:
    void handle(const Event& event);
    void handleMessage(const Person& person, const std::string& text);
    void handleJoin(const Person& person);
    void postMessage(const Person& author, const std::string& text);
    void postJoin(const Person& person);
    void post(UserNotification::Kind kind, std::string title, std::string body);
    std::string serverHost() const;

    const NotifierEnvironment environment;
    Soundboard soundboard;
    bool _isBounceIconEnabled;
    bool _isChatNotificationsEnabled;
    bool _isJoinNotificationsEnabled;
    LocalState _state;
    bool _isObserving = false;
    bool hasStopped = false;
};
