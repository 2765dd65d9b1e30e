#pragma once

#include "Base/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

/// A picture in grey: one byte a pixel, 0 is black, rows from the top without gaps between them.
///
/// It may show a secret key, so it is wiped when it dies, and can't be copied. Any thread may read it, but while one
/// writes, no other may use it.
class GreyFrame {
public:
    /// The most pixels on each side: more than any camera has.
    static constexpr int maximumSide = 16384;

    /// Makes a frame that is all black.
    /// @param width, height  1 to `maximumSide` each; anything else is a bug and ends the process
    GreyFrame(int width, int height);
    ~GreyFrame();
    GreyFrame(const GreyFrame&) = delete;
    GreyFrame& operator=(const GreyFrame&) = delete;

    int width() const { return _width; }
    int height() const { return _height; }
    ByteView pixels() const { return bytes; }
    std::span<std::uint8_t> pixels() { return bytes; }
    std::span<std::uint8_t> row(int y) { return std::span(bytes).subspan(offset(y), static_cast<std::size_t>(_width)); }
    ByteView row(int y) const { return ByteView(bytes).subspan(offset(y), static_cast<std::size_t>(_width)); }

private:
    std::size_t offset(int y) const { return static_cast<std::size_t>(y) * static_cast<std::size_t>(_width); }

    int _width;
    int _height;
    Bytes bytes;
};

/// A finished frame, shared by the view that shows it and the thread that looks for codes in it.
using SharedFrame = std::shared_ptr<const GreyFrame>;
