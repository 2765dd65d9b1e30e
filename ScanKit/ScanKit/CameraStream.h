#pragma once

#include "ScanKit/GreyFrame.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>

/// A message of the program that has the camera.
struct CameraMessage {
    enum class Kind : std::uint8_t {
        alive = 0,      // sent about once a second, so that we notice when the program hangs
        frame = 1,      // a picture
        noCamera = 2,   // there is no camera; the program waits for one
        notOpened = 3,  // there is a camera, but it can't be opened
    };

    Kind kind = Kind::alive;
    SharedFrame frame;  // null unless `kind` is `frame`

    bool operator==(const CameraMessage&) const = default;
};

/// The bytes are no message: they come from another program or version, or from one that is broken.
struct CameraStreamError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads messages from the bytes of the camera program.
///
/// A message is a header of 16 bytes: "VCF1", one byte of kind, three of zero, and width and height in pixels, four
/// bytes each, the lowest first. The header of a frame is followed by the pixels: width times height bytes, 0 is
/// black, rows from the top. For the other kinds width and height are zero.
///
/// The caller puts a frame's bytes right into the frame, so that no copy has to be wiped. Any thread, one at a time.
class CameraStream {
public:
    static constexpr std::size_t headerSize = 16;
    /// The most pixels in a frame. A header that announces more is an error, before any memory is reserved.
    static constexpr std::size_t maximumPixels = std::size_t(1) << 25;

    using Header = std::array<std::uint8_t, headerSize>;

    static bool fits(int width, int height);
    /// @param message  its frame, if it has one, must be of a size that `fits`
    static Header headerOf(const CameraMessage& message);

    /// Where to put the next bytes: never empty, and valid until the next call of `advance`.
    std::span<std::uint8_t> room();
    /// @param count  the number of bytes that were put at the beginning of `room`
    /// @return the message that these bytes complete, if they do
    /// @throws CameraStreamError  after which nothing more can be read
    [[nodiscard]] std::optional<CameraMessage> advance(std::size_t count);

private:
    std::optional<CameraMessage> readHeader();

    Header header{};
    std::shared_ptr<GreyFrame> frame;  // set while its pixels come; null while a header comes
    std::size_t filled = 0;            // the number of bytes that the header or frame has so far
};
