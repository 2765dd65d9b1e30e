#include "PlatformDesktop/NotificationBubble.h"

#include "Text/Text.h"
#include "TranscriptKit/DisplayText.h"

#include <QCoreApplication>

#include <string_view>

namespace {

/// The most bytes of a text that are looked at. A limit of characters is not enough, since one character may have
/// any number of marks.
constexpr std::size_t mostBytes = 16UL * NotificationBubble::mostCharacters;

QString category(UserNotification::Kind kind) {
    switch (kind) {
        case UserNotification::Kind::message: return QStringLiteral("im.received");
        case UserNotification::Kind::presence: return QStringLiteral("presence.online");
    }
    return {};
}

/// The part of a text that is shown. It is cut before anything reads it, so that a huge text costs no more.
std::string_view beginning(std::string_view text) {
    if (text.size() > mostBytes) {
        // Do not cut within a code point, which would be shown as U+FFFD.
        std::size_t end = mostBytes;
        while (end > mostBytes - 3 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
        text = text.substr(0, end);
    }
    return Text::prefix(text, NotificationBubble::mostCharacters);
}

QString words(std::string_view text) {
    const std::string_view trimmed = Text::trimmed(text);
    const std::string_view shown = beginning(trimmed);
    bool isCut = shown.size() < trimmed.size();
    QStringList lines = DisplayText::message(shown).split(u'\n');
    if (lines.size() > NotificationBubble::mostLines) {
        lines.resize(NotificationBubble::mostLines);
        isCut = true;
    }
    return lines.join(u'\n') + (isCut ? QStringLiteral("…") : QString());
}

}  // namespace

NotificationAbilities NotificationAbilities::from(const QStringList& capabilities) {
    const auto has = [&](const char* name) { return capabilities.contains(QLatin1String(name)); };
    return {.actions = has("actions"),
            .body = has("body"),
            .bodyMarkup = has("body-markup"),
            .picture = has("icon-static") || has("icon-multi"),
            .sound = has("sound")};
}

NotificationBubble NotificationBubble::from(const UserNotification& notification,
                                            const NotificationAbilities& abilities, const QString& desktopEntry) {
    NotificationBubble bubble;
    bubble.summary = DisplayText::name(notification.title);
    const QString said = words(notification.body);
    if (!abilities.body && !said.isEmpty()) {
        bubble.summary += QStringLiteral(": ") + DisplayText::name(said.toStdString());
    } else {
        const QString host = DisplayText::name(notification.subtitle);
        if (!host.isEmpty()) bubble.summary += QStringLiteral(" · ") + host;
        bubble.body = abilities.bodyMarkup ? QString(said)
                                                 .replace(u'&', QLatin1String("&amp;"))
                                                 .replace(u'<', QLatin1String("&lt;"))
                                                 .replace(u'>', QLatin1String("&gt;"))
                                           : said;
    }
    if (abilities.actions)
        bubble.actions = {QLatin1String(defaultAction), QCoreApplication::translate("NotificationBubble", "Open")};
    bubble.hints.insert(QStringLiteral("desktop-entry"), desktopEntry);
    bubble.hints.insert(QStringLiteral("category"), category(notification.kind));
    if (abilities.sound) bubble.hints.insert(QStringLiteral("suppress-sound"), true);
    return bubble;
}
