#include "DesktopViews/RowStyle.h"

#include "DesktopViews/Look.h"

#include <QFontMetricsF>

#include <algorithm>
#include <cmath>

namespace {

int up(double length) { return static_cast<int>(std::ceil(length)); }
int scaled(double points) { return static_cast<int>(std::lround(Look::scaled(points))); }

}  // namespace

RowStyle::RowStyle(const QPalette& palette)
    : messageFont(Look::font(13)),
      largeEmojiFont(Look::emojiFont(28)),
      timeFont(Look::font(10)),
      emojiFont(Look::emojiFont(11)),
      nameFont(Look::font(12, QFont::DemiBold)),
      activityFont(Look::font(11)),
      dayFont(Look::font(11, QFont::DemiBold)),
      palette(palette),
      label(Look::label(palette)),
      secondary(Look::secondaryLabel(palette)),
      tertiary(Look::tertiaryLabel(palette)),
      divider(Look::divider(palette)) {
    margin = scaled(12);
    timeRight = margin + up(QFontMetricsF(timeFont).horizontalAdvance(QStringLiteral("00:00")));
    emojiLeft = timeRight + scaled(6);
    emojiWidth = scaled(20);
    textLeft = emojiLeft + emojiWidth + scaled(6);
    padding = scaled(2);
    blockPadding = scaled(7);
    notePadding = scaled(5);
    dayPadding = scaled(10);
    const QFontMetricsF message(messageFont);
    lineHeight = up(message.height()) + scaled(1);
    lineAscent = up(message.ascent());
    nameHeight = up(QFontMetricsF(nameFont).height()) + scaled(1);
    noteHeight = up(QFontMetricsF(activityFont).height());
    dayHeight = up(QFontMetricsF(dayFont).height());
    characterWidth = std::max(1.0, message.averageCharWidth());
}

int RowStyle::textWidth(int width) const { return std::max(1, width - textLeft - margin); }
