#include "DesktopViews/ConnectionView.h"
#include "DesktopViews/Look.h"
#include "TranscriptKit/AuthorColor.h"

#include <gtest/gtest.h>

#include <QFontInfo>
#include <QLabel>

namespace {

Rgb rgb(const QColor& color) {
    return {static_cast<std::uint8_t>(color.red()), static_cast<std::uint8_t>(color.green()),
            static_cast<std::uint8_t>(color.blue())};
}

QPalette dark() {
    QPalette palette(QColor(0x2b, 0x2b, 0x2b));
    palette.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x1e));
    palette.setColor(QPalette::Text, QColor(0xee, 0xee, 0xee));
    return palette;
}

}  // namespace

TEST(ConnectionViewTest, NormalTakesNoRoom) {
    ConnectionView pill;
    EXPECT_EQ(pill.state(), ConnectionView::State::normal);
    EXPECT_EQ(pill.sizeHint(), QSize(0, 0));
}

TEST(ConnectionViewTest, OfflineIsAsWideAsMarginIconGapLabelAndMargin) {
    ConnectionView pill;
    pill.setState(ConnectionView::State::offline);
    const auto* label = pill.findChild<QLabel*>();
    ASSERT_TRUE(label);
    EXPECT_EQ(label->text(), "Offline");
    EXPECT_EQ(pill.sizeHint(), QSize(13 + 6 + 3 + label->sizeHint().width() + 6, 23));

    pill.resize(pill.sizeHint());
    pill.show();
    EXPECT_EQ(label->x(), 6 + 13 + 3);
    EXPECT_EQ(pill.width() - label->geometry().right() - 1, 6);

    pill.setState(ConnectionView::State::normal);
    EXPECT_EQ(pill.sizeHint(), QSize(0, 0));
}

TEST(ConnectionViewTest, StandsTenPointsFromTheRightEdge) {
    QWidget area;
    area.resize(300, 40);
    ConnectionView pill(&area);
    pill.setState(ConnectionView::State::offline);
    pill.place(area.rect());
    EXPECT_EQ(pill.size(), pill.sizeHint());
    EXPECT_EQ(area.width() - pill.geometry().right() - 1, 10);
    EXPECT_EQ(pill.y(), 8);
}

TEST(ConnectionViewTest, ShowsTheArrow) {
    const ConnectionView pill;
    EXPECT_EQ(pill.cursor().shape(), Qt::ArrowCursor);
    EXPECT_EQ(pill.accessibleName(), "Offline");
}

TEST(ConnectionViewTest, IsReadableInBothPalettesAndFollowsThem) {
    ConnectionView pill;
    const auto* label = pill.findChild<QLabel*>();
    for (const QPalette& palette : {QPalette(Qt::white), dark()}) {
        pill.setPalette(palette);
        EXPECT_EQ(pill.color(), Look::offlineBackground(palette));
        EXPECT_GE(AuthorColor::contrast(rgb(label->palette().color(QPalette::WindowText)), rgb(pill.color())), 4.5);
    }
}
