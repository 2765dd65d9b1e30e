#include "QrPicture.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <qrencode.h>

namespace QrPicture {

void write(const std::filesystem::path& file, std::string_view text) {
    constexpr int side = 300;
    constexpr int margin = 30;
    std::ofstream picture(file);
    picture << "P2\n" << side << ' ' << side << "\n255\n";
    std::unique_ptr<QRcode, decltype(&QRcode_free)> code(nullptr, &QRcode_free);
    if (!text.empty()) {
        code.reset(QRcode_encodeData(static_cast<int>(text.size()), reinterpret_cast<const unsigned char*>(text.data()),
                                     0, QR_ECLEVEL_M));
        ASSERT_TRUE(code);
    }
    const int module = code ? (side - 2 * margin) / code->width : 1;
    const auto isDark = [&](int x, int y) {
        if (!code || x < margin || y < margin) return false;
        const int column = (x - margin) / module;
        const int row = (y - margin) / module;
        return column < code->width && row < code->width && (code->data[row * code->width + column] & 1) != 0;
    };
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) picture << (isDark(x, y) ? "0 " : "255 ");
        picture << '\n';
    }
}

}  // namespace QrPicture
