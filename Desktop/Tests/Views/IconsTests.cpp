#include "DesktopViews/Icons.h"

#include <QFile>
#include <QImage>
#include <QPainter>
#include <QPixmap>

#include <algorithm>

#include <gtest/gtest.h>

namespace {

QPalette paletteWith(QColor text, QColor disabled) {
    QPalette palette;
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, disabled);
    return palette;
}

/// The number of pixels that are wholly covered, and their colour if all have the same.
struct Covered {
    int count = 0;
    bool isOneColor = true;
    QColor color;
};

Covered covered(const QImage& image) {
    Covered result;
    for (int y = 0; y < image.height(); y++)
        for (int x = 0; x < image.width(); x++) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.alpha() < 255) continue;
            if (result.count++ == 0) result.color = pixel;
            if (pixel != result.color) result.isOneColor = false;
        }
    return result;
}

TEST(IconsTest, AGlyphHasThePalettesTextColorAndTheDisabledOneWhereItIsDisabled) {
    const QPalette palette = paletteWith(QColor(0xee, 0xdd, 0xcc), QColor(0x55, 0x66, 0x77));
    for (const char* name : {"offline", "room", "share"}) {
        const QIcon icon = Icons::symbol(QLatin1String(name), palette);
        ASSERT_FALSE(icon.isNull()) << name;
        const Covered normal = covered(icon.pixmap(QSize(48, 48), 1.0).toImage());
        EXPECT_GT(normal.count, 100) << name;
        EXPECT_TRUE(normal.isOneColor) << name;
        EXPECT_EQ(normal.color, QColor(0xee, 0xdd, 0xcc)) << name;
        const Covered disabled = covered(icon.pixmap(QSize(48, 48), 1.0, QIcon::Disabled).toImage());
        EXPECT_TRUE(disabled.isOneColor) << name;
        EXPECT_EQ(disabled.color, QColor(0x55, 0x66, 0x77)) << name;
    }
}

TEST(IconsTest, AtAHigherRatioItIsDrawnWithMorePixelsRatherThanStretched) {
    const QIcon icon = Icons::symbol(QStringLiteral("share"), paletteWith(Qt::black, Qt::gray));
    for (const double ratio : {1.0, 1.25, 1.5, 2.0, 3.0}) {
        const QPixmap pixmap = icon.pixmap(QSize(16, 16), ratio);
        const int side = qRound(16 * ratio);
        EXPECT_EQ(pixmap.size(), QSize(side, side)) << ratio;
        EXPECT_DOUBLE_EQ(pixmap.devicePixelRatio(), ratio);
        QPixmap plain = icon.pixmap(QSize(side, side), 1.0);
        EXPECT_EQ(pixmap.toImage().convertToFormat(QImage::Format_ARGB32).pixelColor(side / 2, side / 2),
                  plain.toImage().convertToFormat(QImage::Format_ARGB32).pixelColor(side / 2, side / 2));
    }
    // A small picture that was only stretched would have blurred edges, and so fewer wholly covered pixels.
    const int small = covered(icon.pixmap(QSize(16, 16), 1.0).toImage()).count;
    EXPECT_GT(covered(icon.pixmap(QSize(16, 16), 4.0).toImage()).count, 16 * small);
}

TEST(IconsTest, PaintedOnASharpDeviceItUsesAllItsPixels) {
    const QIcon icon = Icons::symbol(QStringLiteral("room"), paletteWith(Qt::black, Qt::gray));
    QImage canvas(64, 64, QImage::Format_ARGB32_Premultiplied);
    canvas.setDevicePixelRatio(2);
    canvas.fill(Qt::transparent);
    QPainter painter(&canvas);
    icon.paint(&painter, QRect(0, 0, 32, 32));
    painter.end();
    canvas.setDevicePixelRatio(1);
    const QImage direct =
        icon.pixmap(QSize(64, 64), 1.0).toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    EXPECT_EQ(canvas, direct);
}

TEST(IconsTest, InAnOblongItKeepsItsShape) {
    const QIcon icon = Icons::symbol(QStringLiteral("room"), paletteWith(Qt::black, Qt::gray));
    const QImage wide = icon.pixmap(QSize(64, 32), 1.0).toImage();
    ASSERT_EQ(wide.size(), QSize(64, 32));
    for (int y = 0; y < 32; y++) {
        EXPECT_EQ(wide.pixelColor(8, y).alpha(), 0) << y;
        EXPECT_EQ(wide.pixelColor(55, y).alpha(), 0) << y;
    }
    EXPECT_GT(covered(wide).count, 0);
}

TEST(IconsTest, TheProgramsIconIsInColorAtEverySizeThatItOffers) {
    const QIcon icon = Icons::app();
    ASSERT_FALSE(icon.isNull());
    const QList<QSize> sizes = icon.availableSizes();
    EXPECT_TRUE(sizes.contains(QSize(16, 16)));
    EXPECT_TRUE(sizes.contains(QSize(256, 256)));
    for (const QSize& size : sizes) {
        const QImage image = icon.pixmap(size, 1.0).toImage();
        EXPECT_EQ(image.size(), size);
        const Covered all = covered(image);
        EXPECT_GT(all.count, size.width() * size.height() / 3) << size.width();
        EXPECT_FALSE(all.isOneColor) << size.width();
        EXPECT_EQ(image.pixelColor(0, 0).alpha(), 0) << size.width();
    }
}

TEST(IconsTest, AnUnknownNameGivesANullIcon) {
    EXPECT_TRUE(Icons::symbol(QStringLiteral("nothing"), QPalette()).isNull());
}

TEST(IconsTest, TheProgramsIconCanBeFoundByItsName) {
    EXPECT_TRUE(QFile::exists(QStringLiteral(":/vimble/VimbleIcon.svg")));
    EXPECT_TRUE(QFile::exists(QStringLiteral(":/vimble/VimbleIcon-symbolic.svg")));
}

}  // namespace
