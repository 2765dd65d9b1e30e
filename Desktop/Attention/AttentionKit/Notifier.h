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

/// What a `Notifier` works with. All references must outlive it.
struct NotifierEnvironment {
    MainLoop& loop;
    Kit& kit;
    UserDefaults& userDefaults;
    SoundPlayer& sounds;
    NotificationCenter& notifications;
    UserAttention& attention;
};

/// Tells the user who came and who spoke, while they do something else: by a sound, a notification, and a
/// window that asks to be looked at.
///
/// Nobody is told of their own words, and nothing is told before the server's list has included the user. A
/// text that holds the user's display name, as it stands and anywhere, has a sound of its own. The sounds are
/// switched by none of the three switches, and the switches are independent of each other; all are on until
/// the user turns them off. Notifications are posted while the application is in front too: how to show them
/// is up to the desktop.
///
/// Main thread only. Nothing here reaches back into the session, which holds it weakly.
class Notifier : public SignalTarget {
public:
    /// What of the session's state concerns it.
    struct LocalState {
        using StateType = State;
        explicit LocalState(const State* state);

        std::optional<Person> user;
        std::optional<Endpoint> endpoint;

        bool operator==(const LocalState&) const = default;
    };

    /// Reads the switches, and does nothing until `start`.
    explicit Notifier(const NotifierEnvironment& environment);

    /// The process's one, made at first use from what `configureShared` was given; never torn down.
    static Notifier& shared();
    /// Says what the shared one works with. Once, before the first use.
    static void configureShared(std::function<NotifierEnvironment()> environment);

    /// Begins to follow the session. Only the first call has an effect.
    void start();
    /// Takes away whatever notification is pending, or on the screen: the user is here.
    void clearNotifications();
    /// The program is ending: what is still on the screen goes, since nobody would be there to answer a click,
    /// and nothing more is told. It can't be started again.
    void stop();

    // ---- the switches; each set is written to the user defaults

    /// A window asks to be looked at when a message comes and the application is not in front.
    bool isBounceIconEnabled() const { return _isBounceIconEnabled; }
    void setBounceIconEnabled(bool isEnabled);
    /// A notification for a message.
    bool isChatNotificationsEnabled() const { return _isChatNotificationsEnabled; }
    void setChatNotificationsEnabled(bool isEnabled);
    /// A notification for somebody who came.
    bool isJoinNotificationsEnabled() const { return _isJoinNotificationsEnabled; }
    void setJoinNotificationsEnabled(bool isEnabled);

    /// The last subset of the session's state that was seen.
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
