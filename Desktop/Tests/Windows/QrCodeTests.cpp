#include "DesktopKit/QrCode.h"

#include "DesktopKit/QrDialog.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QPalette>

#include <ZXing/BarcodeFormat.h>
#include <ZXing/DecodeHints.h>
#include <ZXing/ReadBarcode.h>

#include <optional>
#include <string>

namespace {

const std::string key = "00ff123456789abcdef00112233445566778899aabbccddeeff0123456789abc";

/// The text that a QR reader finds in the picture.
std::optional<std::string> read(const QImage& picture) {
    const QImage grey = picture.convertToFormat(QImage::Format_Grayscale8);
    const ZXing::ImageView view(grey.constBits(), grey.width(), grey.height(), ZXing::ImageFormat::Lum,
                                static_cast<int>(grey.bytesPerLine()));
    const auto result = ZXing::ReadBarcode(view, ZXing::DecodeHints().setFormats(ZXing::BarcodeFormat::QRCode));
    if (!result.isValid()) return std::nullopt;
    const auto& bytes = result.bytes();
    return std::string(bytes.begin(), bytes.end());
}

QImage painted(const QrCode& code, int side, double ratio = 1) {
    QImage picture(QSize(side, side) * ratio, QImage::Format_RGB32);
    picture.setDevicePixelRatio(ratio);
    picture.fill(Qt::darkGray);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    code.paint(painter, QRectF(0, 0, side, side));
    painter.end();
    return picture;
}

TEST(QrCodeTest, AKeyIsReadBackAtAnySizeThatHoldsIt) {
    const auto code = QrCode::of(key);
    ASSERT_TRUE(code);
    EXPECT_EQ(code->size(), 37);
    for (const double ratio : {1.0, 1.25, 1.5, 2.0})
        for (const int side : {100, 140, 240, 333}) EXPECT_EQ(read(painted(*code, side, ratio)), key) << side;
}

TEST(QrCodeTest, EveryDotIsBlackOrWhiteAtFractionalScalesToo) {
    const auto code = QrCode::of(key);
    for (const double ratio : {1.0, 1.25, 1.75}) {
        const QImage picture = painted(*code, 240, ratio);
        const QRgb outside = QColor(Qt::darkGray).rgb();
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x) {
                const QRgb dot = picture.pixel(x, y);
                ASSERT_TRUE(dot == outside || dot == QColor(Qt::black).rgb() || dot == QColor(Qt::white).rgb());
            }
    }
}

TEST(QrCodeTest, AQuietZoneOfFourLightModulesSurroundsIt) {
    const auto code = QrCode::of(key);
    const int all = code->size() + 2 * QrCode::quietModules;
    const QImage picture = painted(*code, all * 3);
    for (int at = 0; at < all * 3; ++at)
        for (int depth = 0; depth < QrCode::quietModules * 3; ++depth) {
            ASSERT_EQ(picture.pixel(at, depth), QColor(Qt::white).rgb());
            ASSERT_EQ(picture.pixel(depth, at), QColor(Qt::white).rgb());
        }
    EXPECT_EQ(picture.pixel(QrCode::quietModules * 3, QrCode::quietModules * 3), QColor(Qt::black).rgb());
}

TEST(QrCodeTest, BytesOfAnyKindSurvive) {
    const std::string bytes("\0\xff<b>\n\x80", 7);
    EXPECT_EQ(read(painted(QrCode::of(bytes).value(), 200)), bytes);
}

TEST(QrCodeTest, NothingAndTooMuchMakeNoCode) {
    EXPECT_FALSE(QrCode::of(""));
    EXPECT_TRUE(QrCode::of(std::string(2331, 'a')));
    EXPECT_FALSE(QrCode::of(std::string(2332, 'a')));
    EXPECT_FALSE(QrCode::of(std::string(100000, 'a')));
}

TEST(QrCodeTest, WhereThereIsNoRoomNothingIsDrawn) {
    const QImage picture = painted(QrCode::of(key).value(), 20);
    EXPECT_EQ(picture.pixel(10, 10), QColor(Qt::darkGray).rgb());
}

TEST(QrDialogTest, IsReadBackFromTheScreenInLightAndDark) {
    for (const bool isDark : {false, true}) {
        QrDialog dialog(QString::fromStdString(key), nullptr);
        if (isDark) {
            QPalette palette;
            palette.setColor(QPalette::Window, Qt::black);
            palette.setColor(QPalette::Base, Qt::black);
            palette.setColor(QPalette::WindowText, Qt::white);
            dialog.setPalette(palette);
        }
        dialog.show();
        QApplication::processEvents();
        EXPECT_EQ(read(dialog.grab().toImage()), key);
    }
}

}  // namespace
