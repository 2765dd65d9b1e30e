#pragma once

#include "AttentionKit/NotificationCenter.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

/// The abilities that a notification service has told. Things that it can't do are left out of its notifications.
struct NotificationAbilities {
    bool actions = false;
    bool body = false;
    bool bodyMarkup = false;  // reads the body as mark-up, so plain text must be escaped
    bool picture = false;     // shows a picture that is given as a hint
    bool sound = false;       // plays sounds of its own

    /// @param capabilities  the answer of GetCapabilities
    static NotificationAbilities from(const QStringList& capabilities);

    bool operator==(const NotificationAbilities&) const = default;
};

/// A notification as `org.freedesktop.Notifications` takes it, without the icon.
///
/// The words of others are made safe: they go through `DisplayText`, and are cut off with "…" after `mostCharacters`
/// or `mostLines`. The body is escaped if the service reads it as mark-up; the summary never is.
///
/// The server's host follows the title, and is not in the body, because a desktop may show only one line of that. If
/// the service shows no body, the words follow the title instead of the host, on one line.
struct NotificationBubble {
    QString summary;
    QString body;
    QStringList actions;  // pairs of key and label
    QVariantMap hints;    // desktop-entry, category, and suppress-sound if the service plays sounds

    static constexpr char defaultAction[] = "default";  // the key for a click on the bubble itself
    static constexpr int mostCharacters = 1000;         // user-perceived characters of the body
    static constexpr int mostLines = 12;                // lines of the body

    /// @param desktopEntry  name of the application's desktop file, without its ending
    static NotificationBubble from(const UserNotification& notification, const NotificationAbilities& abilities,
                                   const QString& desktopEntry);
};
