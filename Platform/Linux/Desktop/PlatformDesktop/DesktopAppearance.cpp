#include "PlatformDesktop/DesktopAppearance.h"

#include <QApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStyle>
#include <QStyleFactory>

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr char service[] = "org.freedesktop.portal.Desktop";
constexpr char path[] = "/org/freedesktop/portal/desktop";
constexpr char settings[] = "org.freedesktop.portal.Settings";
constexpr char appearance[] = "org.freedesktop.appearance";
constexpr char colorScheme[] = "color-scheme";
constexpr uint preferDark = 1;

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightnessF() < palette.color(QPalette::WindowText).lightnessF();
}

/// Whether a style draws in the palette's colours. Others have a theme of their own.
bool followsPalette(const QString& style) {
    static constexpr std::array known{"fusion", "windows", "breeze", "oxygen"};
    return std::any_of(known.begin(), known.end(),
                       [&](const char* name) { return style.compare(QLatin1String(name), Qt::CaseInsensitive) == 0; });
}

}  // namespace

DesktopAppearance::DesktopAppearance(QDBusConnection bus) {
    if (!bus.isConnected()) return;
    // Register the slot's parameter type first: without that, connecting to the slot by its name fails silently.
    qRegisterMetaType<QDBusVariant>();
    bus.connect(QLatin1String(service), QLatin1String(path), QLatin1String(settings), QStringLiteral("SettingChanged"),
                this, SLOT(settingChanged(QString, QString, QDBusVariant)));
    QDBusMessage read = QDBusMessage::createMethodCall(QLatin1String(service), QLatin1String(path),
                                                       QLatin1String(settings), QStringLiteral("Read"));
    read << QLatin1String(appearance) << QLatin1String(colorScheme);
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        const QDBusPendingReply<QDBusVariant> reply = *watcher;
        watcher->deleteLater();
        if (reply.isValid() && !hasChanged) prefer(reply.value().variant());
    });
}

DesktopAppearance::~DesktopAppearance() {
    if (qApp != nullptr) takeBack();
}

void DesktopAppearance::settingChanged(const QString& group, const QString& key, const QDBusVariant& value) {
    if (group != QLatin1String(appearance) || key != QLatin1String(colorScheme)) return;
    hasChanged = true;
    prefer(value.variant());
}

void DesktopAppearance::prefer(const QVariant& scheme) {
    // The answer of Read has its value in one more QDBusVariant than the signal.
    const QVariant value =
        scheme.metaType() == QMetaType::fromType<QDBusVariant>() ? scheme.value<QDBusVariant>().variant() : scheme;
    if (value.metaType().id() == QMetaType::UInt && value.toUInt() == preferDark)
        apply();
    else
        takeBack();
}

void DesktopAppearance::apply() {
    if (_isApplied || isDark(QApplication::palette())) return;
    _isApplied = true;
    const QString style = QApplication::style()->name();
    if (!followsPalette(style)) {
        styleBefore = style;
        QApplication::setStyle(QStringLiteral("Fusion"));
    }
    QApplication::setPalette(darkPalette());
}

void DesktopAppearance::takeBack() {
    if (!std::exchange(_isApplied, false)) return;
    // A palette without any colour set restores the platform's palette.
    QApplication::setPalette(QPalette());
    // If the style before can't be made again, Fusion stays; that is not worth an error.
    const QString style = std::exchange(styleBefore, {});
    if (!style.isEmpty() && QStyleFactory::keys().contains(style, Qt::CaseInsensitive)) QApplication::setStyle(style);
}

QPalette DesktopAppearance::darkPalette() {
    const QColor text(0xe8, 0xe9, 0xec);
    const QColor faded(0x84, 0x88, 0x90);
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0x26, 0x28, 0x2c));
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, QColor(0x1c, 0x1e, 0x21));
    palette.setColor(QPalette::AlternateBase, QColor(0x23, 0x25, 0x29));
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::PlaceholderText, QColor(0x92, 0x96, 0x9e));
    palette.setColor(QPalette::Button, QColor(0x35, 0x38, 0x3d));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, QColor(0xff, 0x8f, 0x85));
    palette.setColor(QPalette::ToolTipBase, QColor(0x3a, 0x3d, 0x43));
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::Highlight, QColor(0x14, 0x75, 0x8a));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x63, 0xb8, 0xe8));
    palette.setColor(QPalette::LinkVisited, QColor(0xc1, 0x9e, 0xe6));
    // Styles draw edges with these, and expect them to be lighter and darker than a button.
    palette.setColor(QPalette::Light, QColor(0x50, 0x54, 0x5b));
    palette.setColor(QPalette::Midlight, QColor(0x42, 0x45, 0x4b));
    palette.setColor(QPalette::Mid, QColor(0x2a, 0x2c, 0x30));
    palette.setColor(QPalette::Dark, QColor(0x17, 0x18, 0x1b));
    palette.setColor(QPalette::Shadow, QColor(0x0c, 0x0d, 0x0e));
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, faded);
    palette.setColor(QPalette::Disabled, QPalette::Highlight, QColor(0x3a, 0x3d, 0x43));
    palette.setColor(QPalette::Disabled, QPalette::HighlightedText, faded);
    return palette;
}
