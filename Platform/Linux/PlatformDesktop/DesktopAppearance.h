#pragma once

#include <QDBusConnection>
#include <QDBusVariant>
#include <QObject>
#include <QPalette>

/// Follows the desktop's preference for a light or a dark look where Qt does not.
///
/// Qt takes its colours from a platform theme, which many desktops don't have for it: they tell their preference
/// over the desktop portal alone (`org.freedesktop.portal.Settings`, "color-scheme" of
/// "org.freedesktop.appearance": 1 dark, 2 light, anything else none). When dark is preferred and the application's
/// palette is light, this sets a dark palette, and the Fusion style if the one in use draws in colours of its own;
/// when dark is no longer preferred it takes both back. Where the application is dark already it does nothing. It
/// looks at the application's palette when a preference arrives, not in between.
///
/// The portal is asked without waiting: a missing or silent one, or no bus, leaves everything as it is. An answer
/// that comes after a change was told is out of date, and dropped.
///
/// Main thread, with a QApplication; make it before the windows, so that they need not change their colours.
/// Destroying it takes back what it set.
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
    bool hasChanged = false;  // since we asked
    QString styleBefore;      // empty: the style is as it was
};
