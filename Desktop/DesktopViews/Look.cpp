#include "DesktopViews/Look.h"

#include "TranscriptKit/EmojiRanges.h"

#include <QFontDatabase>
#include <QFontInfo>
#include <QGuiApplication>

#include <algorithm>
#include <cmath>

namespace {

// The usual size of a desktop's font: 10 points at 96 dots an inch.
constexpr double usualPixels = 13.34;
constexpr char emojiFamily[] = "Noto Color Emoji";

double factor() {
    const double pixels = QFontInfo(QGuiApplication::font()).pixelSize();
    const double wanted = QGuiApplication::font().pixelSize() > 0 ? QGuiApplication::font().pixelSize()
                                                                  : QGuiApplication::font().pointSizeF() * 96.0 / 72.0;
    const double size = wanted > 0 ? wanted : pixels;
    // A difference of a few percent comes from rounding: take it as the usual size.
    const double ratio = size / usualPixels;
    return std::abs(ratio - 1) < 0.06 ? 1 : std::clamp(ratio, 0.5, 4.0);
}

/// The font's families, then the one of the emoji. The resolved family is put between them, since an alias such
/// as "Sans Serif" works only alone: in a list Qt skips it, and would take digits and blanks from the emoji font.
QStringList familiesWithEmoji(const QFont& font) {
    QStringList families = font.families();
    for (const QString& family : {QFontInfo(font).family(), QString::fromLatin1(emojiFamily)})
        if (!families.contains(family)) families.append(family);
    return families;
}

QFont sized(QFont font, double points, QFont::Weight weight) {
    font.setPixelSize(std::max(1, static_cast<int>(std::lround(points * factor()))));
    font.setWeight(weight);
    return font;
}

QColor mixed(const QColor& one, const QColor& other, double share) {
    const auto part = [share](double a, double b) { return static_cast<float>(a * share + b * (1 - share)); };
    return QColor::fromRgbF(part(one.redF(), other.redF()), part(one.greenF(), other.greenF()),
                            part(one.blueF(), other.blueF()));
}

QColor faded(const QPalette& palette, double share) {
    return mixed(palette.color(QPalette::Text), palette.color(QPalette::Base), share);
}

}  // namespace

double Look::scaled(double points) { return points * factor(); }

QFont Look::font(double points, QFont::Weight weight) {
    QFont font = QGuiApplication::font();
    font.setFamilies(familiesWithEmoji(font));
    return sized(font, points, weight);
}

QFont Look::monospacedFont(double points, QFont::Weight weight) {
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setStyleHint(QFont::Monospace);
    font.setFamilies(familiesWithEmoji(font));
    return sized(font, points, weight);
}

QFont Look::emojiFont(double points) {
    QFont font = QGuiApplication::font();
    font.setFamilies(QStringList{emojiFamily} + font.families());
    return sized(font, points, QFont::Normal);
}

void Look::loadFonts() {
    for (const QFont& font :
         {Look::font(13), Look::font(13, QFont::Medium), Look::font(11), Look::monospacedFont(11)}) {
        QTextLayout layout(QStringLiteral("Ag 12"), font);
        layout.beginLayout();
        layout.createLine();
        layout.endLayout();
    }
}

QVector<QTextLayout::FormatRange> Look::emojiFormats(const QString& text, const QFont& font) {
    QVector<QTextLayout::FormatRange> formats;
    for (const EmojiRanges::Range& range : EmojiRanges::find(text)) {
        QTextLayout::FormatRange format;
        format.start = static_cast<int>(range.start);
        format.length = static_cast<int>(range.length);
        format.format.setFontFamilies(QStringList{emojiFamily} + font.families());
        formats.append(format);
    }
    return formats;
}

bool Look::isDark(const QPalette& palette) { return palette.color(QPalette::Base).lightnessF() < 0.5F; }

QColor Look::label(const QPalette& palette) { return palette.color(QPalette::Text); }
QColor Look::secondaryLabel(const QPalette& palette) { return faded(palette, 0.68); }
QColor Look::tertiaryLabel(const QPalette& palette) { return faded(palette, 0.55); }
QColor Look::divider(const QPalette& palette) { return faded(palette, 0.16); }

QColor Look::offlineBackground(const QPalette& palette) {
    return isDark(palette) ? QColor(0x7a, 0x2e, 0x2a) : QColor(0xf6, 0xd9, 0xd5);
}

QColor Look::author(std::string_view publicKey, const QPalette& palette) {
    const Rgb rgb = AuthorColor::of(publicKey, isDark(palette));
    return {rgb.red, rgb.green, rgb.blue};
}
