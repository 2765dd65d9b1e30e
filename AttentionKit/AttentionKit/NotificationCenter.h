#pragma once

#include "StateKit/MainLoop.h"

#include <string>

/// A notification that the desktop shows to the user. All texts are UTF-8 as they came from others: the
/// implementation that shows them must make them safe.
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
/// No operation waits for the desktop or reports a failure: on a desktop without notifications nothing is
/// shown. Main thread only.
class NotificationCenter {
public:
    virtual ~NotificationCenter() = default;

    /// Asks for permission to show notifications. There is no answer: without permission they are just not shown.
    virtual void requestAuthorization() = 0;
    /// Shows a notification after `delay`, without a sound. It is pending until then.
    virtual void add(UserNotification notification, Seconds delay) = 0;
    virtual void removeAllPending() = 0;
    /// Closes the notifications that this process has shown.
    virtual void removeAllDelivered() = 0;
};
