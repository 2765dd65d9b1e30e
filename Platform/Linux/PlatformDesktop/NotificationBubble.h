#pragma once

#include "AttentionKit/NotificationCenter.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

/// What a notification service says that it can do. Everything else is left out of what it gets.
struct NotificationAbilities {
    bool actions = false;
    bool body = false;
    bool bodyMarkup = false;  // reads the body as mark-up, so that what is none has to be escaped
    bool picture = false;     // shows the picture of a hint
    bool sound = false;       // plays sounds of its own

    /// @param capabilities  of GetCapabilities
    static NotificationAbilities from(const QStringList& capabilities);

    bool operator==(const NotificationAbilities&) const = default;
};

/// A notification as `org.freedesktop.Notifications` takes it, but for the icon.
///
/// The words of others are made harmless: control characters and those that turn what follows around go, and they are
/// cut off with "…" behind `mostCharacters` or `mostLines`. The body is escaped where it is read as mark-up; the
/// summary never is.
///
/// The server's host stands behind the title, where it costs the message no line: a desktop may show one line of the
/// body only. Where there is no body at all, the words follow the title instead of the host, on one line.
struct NotificationBubble {
    QString summary;
    QString body;
    QStringList actions;  // pairs of key and label
    QVariantMap hints;    // desktop-entry, category, and suppress-sound where there could be one

    static constexpr char defaultAction[] = "default";  // clicking the bubble itself
    static constexpr int mostCharacters = 1000;         // of the body, as people count them
    static constexpr int mostLines = 12;                // of the body

    /// @param desktopEntry  name of the application's desktop file, without its ending
    static NotificationBubble from(const UserNotification& notification, const NotificationAbilities& abilities,
                                   const QString& desktopEntry);
};
