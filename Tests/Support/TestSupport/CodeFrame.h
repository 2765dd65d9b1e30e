#pragma once

#include "ScanKit/GreyFrame.h"

#include <algorithm>
#include <memory>
#include <qrencode.h>
#include <stdexcept>
#include <string>

/// Frames with a QR code on them, black on white and not tilted.
namespace CodeFrame {

/// Draws a code of level M in byte mode, without a quiet zone.
/// @param left, top  of the first module, in pixels
/// @param scale      pixels a module
inline void draw(GreyFrame& frame, const std::string& text, int left, int top, int scale) {
    const std::unique_ptr<QRcode, void (*)(QRcode*)> code(
        QRcode_encodeData(static_cast<int>(text.size()), reinterpret_cast<const unsigned char*>(text.data()), 0,
                          QR_ECLEVEL_M),
        QRcode_free);
    if (!code) throw std::runtime_error("no code holds this");
    for (int y = 0; y < code->width * scale; ++y)
        for (int x = 0; x < code->width * scale; ++x)
            frame.row(top + y)[static_cast<std::size_t>(left + x)] =
                (code->data[y / scale * code->width + x / scale] & 1) != 0 ? 0 : 255;
}

inline std::shared_ptr<GreyFrame> blank(int width = 640, int height = 480) {
    auto frame = std::make_shared<GreyFrame>(width, height);
    for (int y = 0; y < height; ++y) std::ranges::fill(frame->row(y), std::uint8_t(255));
    return frame;
}

/// 640 x 480, with the code in the middle of it.
inline SharedFrame of(const std::string& text) {
    auto frame = blank();
    draw(*frame, text, 210, 130, 5);
    return frame;
}

}  // namespace CodeFrame
