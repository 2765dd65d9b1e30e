#pragma once

#include <QRectF>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

class QPainter;

/// A QR code of some bytes: a square of dark and light modules, of error correction level M.
///
/// A value; copies share their modules, which are wiped with the last copy, since a code may hold a secret. The
/// encoder's own working memory is not wiped.
class QrCode {
public:
    /// Whether the place in which a code is drawn includes its quiet zone.
    enum class QuietZone { inside, outside };

    /// The light modules that a reader needs on every side. Source: ISO/IEC 18004, 9.1.
    static constexpr int quietModules = 4;

    /// Makes a code in byte mode. @return nothing for no bytes, or for more than the 2,331 that a code can hold
    static std::optional<QrCode> of(std::string_view bytes);

    /// Modules a side, without the quiet zone.
    int size() const { return _size; }
    /// @param x, y  from the top left, each below `size`
    bool isDark(int x, int y) const {
        return (*modules)[static_cast<std::size_t>(y) * static_cast<std::size_t>(_size) +
                          static_cast<std::size_t>(x)] != 0;
    }

    /// Draws the code black on white in the middle of `place`, as large as it can be if each module has the same
    /// whole number of dots. Draws nothing if a module would have less than one dot.
    /// @param quietZone  inside: drawn with the code; outside: the caller keeps it white
    void paint(QPainter& painter, const QRectF& place, QuietZone quietZone = QuietZone::inside) const;

private:
    using Modules = std::vector<std::uint8_t>;

    QrCode(int size, std::shared_ptr<const Modules> modules) : _size(size), modules(std::move(modules)) {}

    int _size;
    std::shared_ptr<const Modules> modules;  // row by row, 1 for a dark one
};
