#pragma once

#include <QRectF>

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

class QPainter;

/// A QR code of some bytes: a square of dark and light modules, of error correction level M.
class QrCode {
public:
    /// Modules of light that a reader needs on every side. Source: ISO/IEC 18004, 9.1.
    static constexpr int quietZone = 4;

    /// In byte mode. @return nothing for what no code can hold: none at all, or above 2,331 bytes
    static std::optional<QrCode> of(std::string_view bytes);

    /// Modules a side, without the quiet zone.
    int size() const { return _size; }
    /// @param x, y  from the top left, each below `size`
    bool isDark(int x, int y) const {
        return modules[static_cast<std::size_t>(y) * static_cast<std::size_t>(_size) + static_cast<std::size_t>(x)];
    }

    /// Draws it black on white, quiet zone included, in the middle of that place, of which it takes the
    /// largest part in which each module has the same whole number of dots. Without an effect where there
    /// is less than a dot for a module.
    void paint(QPainter& painter, const QRectF& place) const;

private:
    QrCode(int size, std::vector<bool> modules) : _size(size), modules(std::move(modules)) {}

    int _size;
    std::vector<bool> modules;  // row by row
};
