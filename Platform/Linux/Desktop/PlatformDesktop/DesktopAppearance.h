#pragma once

#include <QDBusConnection>
#include <QDBusVariant>
#include <QObject>
#include <QPalette>

/// Follows the desktop's preference for a light or a dark look where Qt does not.
///
/// Qt takes its colours from a platform theme, and many desktops have none for Qt: they tell their preference
/// only over the desktop portal (`org.freedesktop.portal.Settings`, "color-scheme" of
/// "org.freedesktop.appearance": 1 dark, 2 light, anything else none). If dark is preferred and the application's
/// palette is light, this class sets a dark palette, and the Fusion style if the one in use draws in colours of its
/// own; when dark is no longer preferred it takes both back. If the application is dark already it does nothing. The
/// application's palette is looked at only when a preference arrives.
///
/// The portal is asked without waiting: if it is missing or silent, or there is no bus, everything stays as it is.
/// An answer that comes after a change was signalled is out of date, and dropped.
///
/// Main thread, with a QApplication; make it before the windows, so that they need not change their colours.
/// Destroying it takes back the palette and style that it has set.
class DesktopAppearance : public QObject {
    Q_OBJECT

public:
    /// @param bus  usually the session bus
    explicit DesktopAppearance(QDBusConnection bus = QDBusConnection::sessionBus());
    ~DesktopAppearance() override;

    /// Whether the application's colours are this object's.
    bool isApplied() const { return _isApplied; }

    static QPalette darkPalette();

private Q_SLOTS:
    void settingChanged(const QString& group, const QString& key, const QDBusVariant& value);

private:
    void prefer(const QVariant& scheme);
    void apply();
    void takeBack();

    bool _isApplied = false;
    bool hasChanged = false;  // whether a change was signalled since we asked
    QString styleBefore;      // empty unless we have replaced the style
};
