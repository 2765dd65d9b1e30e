#pragma once

#include "StateKit/MainLoop.h"

#include <string>

/// What the user is told by the desktop while doing something else. All texts are UTF-8 as they came from
/// others: to make them harmless is up to whoever shows them.
struct UserNotification {
    enum class Kind { message, presence };

    std::string identifier;  // unique
    Kind kind;
    std::string title;
    std::string subtitle;  // may be empty
    std::string body;      // may be empty

    bool operator==(const UserNotification&) const = default;
};

/// The desktop's place for notifications.
///
/// No operation waits for the desktop or tells of a failure: where nobody shows notifications, nothing is
/// shown. Main thread only.
class NotificationCenter {
public:
    virtual ~NotificationCenter() = default;

    /// Asks to be allowed to show notifications. What the answer is shows in what becomes of them.
    virtual void requestAuthorization() = 0;
    /// Shows it after `delay`, without a sound. It is pending until then.
    virtual void add(UserNotification notification, Seconds delay) = 0;
    virtual void removeAllPending() = 0;
    /// Closes those that this process has shown.
    virtual void removeAllDelivered() = 0;
};
