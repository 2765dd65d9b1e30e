#pragma once

#include "DesktopKit/KeyExport.h"
#include "TweetNacl/Nacl.h"

#include <QImage>
#include <QPainter>

#include <array>
#include <cstdint>
#include <string>

/// A picture of a printed paper key.
namespace PaperKey {

inline SecretKey key() {
    std::array<std::uint8_t, SecretKey::size> bytes{};
    for (std::size_t at = 0; at < bytes.size(); ++at) bytes[at] = static_cast<std::uint8_t>(37 * at + 11);
    return SecretKey(bytes);
}

inline std::string text() { return Nacl::hex(key().view()); }

/// The page on white, with its border.
/// @param modulePixels  the size of a module of the code, which has 37 modules a side and a quiet zone of 4
inline QImage page(double modulePixels) {
    const double scale = modulePixels * (37 + 8) / KeyExport::View::codeSide;
    const int side = static_cast<int>((KeyExport::View::size().width() + 2 * KeyExport::View::border) * scale);
    QImage image(side, static_cast<int>(side * 0.62), QImage::Format_Grayscale8);
    image.fill(Qt::white);
    const KeyExport content(key());
    QPainter painter(&image);
    painter.scale(scale, scale);
    painter.translate(KeyExport::View::border, KeyExport::View::border);
    KeyExport::View(content).paint(painter);
    return image;
}

}  // namespace PaperKey
