#include "DesktopViews/RowLayout.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QImage>
#include <QPainter>

namespace {

RowStyle style() { return RowStyle(QGuiApplication::palette()); }

RowContent words(const QString& text) {
    RowContent content;
    content.text = text;
    return content;
}

/// The left and right edge of the pixels that are drawn.
std::pair<int, int> inked(const RowLayout& row, int width) {
    QImage image(width, row.height(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    row.paint(painter, style(), {0, 0}, image.rect(), {0, 0}, true);
    painter.end();
    int left = width;
    int right = -1;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < width; ++x)
            if (qAlpha(image.pixel(x, y)) > 40) left = std::min(left, x), right = std::max(right, x);
    return {left, right};
}

}  // namespace

TEST(RowLayoutTest, ANarrowerRowIsHigher) {
    const QString text = QString(QStringLiteral("some words ")).repeated(20);
    EXPECT_GT(RowLayout(words(text), style(), 250).height(), 2 * RowLayout(words(text), style(), 600).height() - 10);
}

TEST(RowLayoutTest, ALongWordIsBrokenAnywhere) {
    const RowLayout row(words(QString(300, QLatin1Char('w'))), style(), 300);
    EXPECT_GT(row.height(), 5 * style().lineHeight);
    EXPECT_LT(inked(row, 300).second, 300 - style().margin + 2);
}

TEST(RowLayoutTest, EachParagraphAlignsWithItsOwnFirstStrongLetter) {
    const int width = 500;
    EXPECT_LE(inked(RowLayout(words(QStringLiteral("left")), style(), width), width).first, style().textLeft + 2);
    const auto [left, right] = inked(RowLayout(words(QStringLiteral("שלום")), style(), width), width);
    EXPECT_GT(left, width / 2);
    EXPECT_GE(right, width - style().margin - 4);
    const auto both = inked(RowLayout(words(QStringLiteral("left\nשלום\n12")), style(), width), width);
    EXPECT_LE(both.first, style().textLeft + 2);
    EXPECT_GE(both.second, width - style().margin - 4);
}

TEST(RowLayoutTest, TimeEmojiAndNameStandInTheirColumns) {
    RowContent content = words(QStringLiteral("text"));
    content.startsBlock = true;
    const int plain = RowLayout(content, style(), 400).height();
    content.time = QStringLiteral("12:59");
    content.emoji = QStringLiteral("🦊");
    const RowLayout withTime(content, style(), 400);
    EXPECT_EQ(withTime.height(), plain);
    EXPECT_GE(inked(withTime, 400).first, style().margin - 1);
    EXPECT_LT(inked(withTime, 400).first, style().timeRight);
    content.name = QStringLiteral("Ann");
    EXPECT_EQ(RowLayout(content, style(), 400).height(), plain + style().nameHeight);
}

TEST(RowLayoutTest, AFewEmojiAloneAreLarger) {
    EXPECT_GT(RowLayout(words(QStringLiteral("👍")), style(), 400).height(),
              RowLayout(words(QStringLiteral("👍 yes")), style(), 400).height() + 5);
    EXPECT_EQ(RowLayout(words(QStringLiteral("👍👍👍👍")), style(), 400).height(),
              RowLayout(words(QStringLiteral("yes")), style(), 400).height());
}

TEST(RowLayoutTest, PositionsFollowThePointFromLineToLine) {
    const RowLayout row(words(QStringLiteral("first line\nsecond")), style(), 400);
    const double line = style().lineHeight;
    EXPECT_EQ(row.positionAt({0, 1}), 0);
    EXPECT_EQ(row.positionAt({399, 3}), 10);
    EXPECT_EQ(row.positionAt({0, line + 6}), 11);
    EXPECT_EQ(row.positionAt({399, 1000}), 17);
}

TEST(RowLayoutTest, ALinkIsWhereItsLettersAre) {
    const RowLayout row(words(QStringLiteral("https://example.org and more")), style(), 500);
    const double y = style().padding + style().lineHeight / 2.0;
    const Links::Link* link = row.linkAt({style().textLeft + 20.0, y});
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(link->url, QUrl(QStringLiteral("https://example.org")));
    EXPECT_EQ(row.linkAt({490, y}), nullptr);
    EXPECT_EQ(row.linkAt({5, y}), nullptr);
}

TEST(RowLayoutTest, AWordEndsAtBlanksAndSigns) {
    const RowLayout row(words(QStringLiteral("one two, three")), style(), 500);
    EXPECT_EQ(row.wordAt(5), (std::pair{4, 7}));
    EXPECT_EQ(row.wordAt(0), (std::pair{0, 3}));
    EXPECT_EQ(row.wordAt(14), (std::pair{9, 14}));
    EXPECT_EQ(RowLayout(words({}), style(), 500).wordAt(0), (std::pair{0, 0}));
}

TEST(RowLayoutTest, AnEmptyTextHasTheHeightOfALine) {
    EXPECT_EQ(RowLayout(words({}), style(), 500).height(),
              RowLayout(words(QStringLiteral("a line")), style(), 500).height());
}
