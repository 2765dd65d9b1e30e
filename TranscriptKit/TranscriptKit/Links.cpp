#include "TranscriptKit/Links.h"

#include <array>
#include <optional>

#include <QStringView>

namespace {

constexpr std::size_t mostLinks = 1000;
constexpr qsizetype mostLength = 4096;  // a longer one is no link

bool isAnyOf(QChar c, QStringView characters) { return characters.contains(c); }

/// Whether an address, as people write it, can't contain this: blanks, quotes, and the punctuation of scripts
/// that put no blank after it.
bool endsLink(QChar c) {
    return c.isSpace() || c.category() == QChar::Other_Control || c.category() == QChar::Other_Format ||
           isAnyOf(c, u"<>\"\\`^|“”„«»‹›…。，、；：！？（）「」『』【】《》〈〉") ||
           c == QChar::ObjectReplacementCharacter || c == QChar::ReplacementCharacter;
}

/// Where a link that begins at `start` ends at the latest: before a bracket that it closes but did not open.
qsizetype reachOf(QStringView text, qsizetype start) {
    constexpr QStringView opening = u"([{", closing = u")]}";
    std::array<int, 3> open{};
    for (qsizetype at = start; at < text.size(); ++at) {
        const QChar c = text[at];
        if (endsLink(c)) return at;
        if (const auto kind = opening.indexOf(c); kind >= 0) ++open[static_cast<std::size_t>(kind)];
        if (const auto kind = closing.indexOf(c); kind >= 0 && --open[static_cast<std::size_t>(kind)] < 0) return at;
    }
    return text.size();
}

/// The link without trailing punctuation, which belongs to the sentence around it.
QStringView trimmed(QStringView link) {
    while (!link.isEmpty() && isAnyOf(link.back(), u".,;:!?'’*([{")) link.chop(1);
    return link;
}

bool startsWith(QStringView text, qsizetype at, QStringView beginning) {
    return text.mid(at, beginning.size()).compare(beginning, Qt::CaseInsensitive) == 0;
}

/// How an address begins at some place, if one does: with a scheme, or with "www." alone.
enum class Beginning { none, scheme, www };

Beginning beginningAt(QStringView text, qsizetype at) {
    const QChar first = text[at].toLower();
    if (first != u'h' && first != u'w') return Beginning::none;
    const QChar before = at > 0 ? text[at - 1] : QChar(u' ');
    if (before.isLetterOrNumber() || before.isMark()) return Beginning::none;
    if (startsWith(text, at, u"https://") || startsWith(text, at, u"http://")) return Beginning::scheme;
    // After one of these characters, "www." is part of something else, such as an e-mail address.
    if (startsWith(text, at, u"www.") && !isAnyOf(before, u"@.-_/:")) return Beginning::www;
    return Beginning::none;
}

std::optional<QUrl> urlOf(QStringView link, Beginning beginning) {
    if (link.size() > mostLength) return std::nullopt;
    const bool isBare = beginning == Beginning::www;
    const QUrl url((isBare ? QStringLiteral("https://") : QString()) + link.toString(), QUrl::TolerantMode);
    if (!Links::mayOpen(url)) return std::nullopt;
    // "www.example" has too few parts: it is perhaps a word, not an address.
    if (isBare && url.host().count(u'.') < 2) return std::nullopt;
    return url;
}

}  // namespace

std::vector<Links::Link> Links::find(const QString& text) {
    std::vector<Link> links;
    const QStringView view(text);
    for (qsizetype at = 0; at < view.size() && links.size() < mostLinks;) {
        const Beginning beginning = beginningAt(view, at);
        if (beginning == Beginning::none) {
            ++at;
            continue;
        }
        // Go on at the end even if this is no link: reading a text full of beginnings must stay linear.
        const qsizetype end = reachOf(view, at);
        const QStringView link = trimmed(view.mid(at, end - at));
        if (const auto url = urlOf(link, beginning)) links.push_back({.start = at, .length = link.size(), .url = *url});
        at = end;
    }
    return links;
}

bool Links::mayOpen(const QUrl& url) {
    if (!url.isValid() || url.host().isEmpty()) return false;
    if (url.scheme() != u"http" && url.scheme() != u"https") return false;
    return !url.authority().contains(u'@');
}
