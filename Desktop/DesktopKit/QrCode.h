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
/// A value; copies share their modules, which are wiped with the last one, for a code may hold a secret. What
/// the encoder needs on the way is its own, and not wiped.
class QrCode {
public:
    /// Whether the place given to a code holds its quiet zone, too.
    enum class QuietZone { inside, outside };

    /// Modules of light that a reader needs on every side. Source: ISO/IEC 18004, 9.1.
    static constexpr int quietModules = 4;

    /// In byte mode. @return nothing for what no code can hold: none at all, or above 2,331 bytes
    static std::optional<QrCode> of(std::string_view bytes);

    /// Modules a side, without the quiet zone.
    int size() const { return _size; }
    /// @param x, y  from the top left, each below `size`
    bool isDark(int x, int y) const {
        return (*modules)[static_cast<std::size_t>(y) * static_cast<std::size_t>(_size) +
                          static_cast<std::size_t>(x)] != 0;
    }

    /// Draws it black on white in the middle of that place, of which it takes the largest part in which each
    /// module has the same whole number of dots. Without an effect where there is less than a dot for a module.
    /// @param quietZone  drawn with it, or white already and the caller's to keep free
    void paint(QPainter& painter, const QRectF& place, QuietZone quietZone = QuietZone::inside) const;

private:
    using Modules = std::vector<std::uint8_t>;

    QrCode(int size, std::shared_ptr<const Modules> modules) : _size(size), modules(std::move(modules)) {}

    int _size;
    std::shared_ptr<const Modules> modules;  // row by row, 1 for a dark one
};
