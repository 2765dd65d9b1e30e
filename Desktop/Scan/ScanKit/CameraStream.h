#pragma once

#include "ScanKit/GreyFrame.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>

/// What the program that holds the camera says.
struct CameraMessage {
    enum class Kind : std::uint8_t {
        alive = 0,      // nothing new; comes about once a second, so that a program that hangs is noticed
        frame = 1,      // a picture
        noCamera = 2,   // there is none; the program waits for one
        notOpened = 3,  // there is one, and it can't be opened
    };

    Kind kind = Kind::alive;
    SharedFrame frame;  // with `frame`, else null

    bool operator==(const CameraMessage&) const = default;
};

/// The bytes are no message: they come from another program, another version, or one that has lost its way.
struct CameraStreamError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads messages from the bytes of the camera program.
///
/// A message is a header of 16 bytes: "VCF1", one byte of kind, three of zero, and width and height in pixels, four
/// bytes each, the lowest first. Behind that of a frame come its pixels: width times height bytes, 0 is black, rows
/// from the top. The other kinds have neither width nor height.
///
/// A frame's bytes are read where they stay, so that no copy has to be wiped. Any thread, one at a time.
class CameraStream {
public:
    static constexpr std::size_t headerSize = 16;
    /// Of one frame. A program that announces a larger one is taken for broken before anything is reserved.
    static constexpr std::size_t maximumPixels = std::size_t(1) << 25;

    using Header = std::array<std::uint8_t, headerSize>;

    static bool fits(int width, int height);
    /// @param message  a frame has to fit
    static Header headerOf(const CameraMessage& message);

    /// Where the next bytes are to be put: never empty, and good until the next call of `advance`.
    std::span<std::uint8_t> room();
    /// @param count  how many bytes were put at the beginning of `room`
    /// @return the message that ends with them
    /// @throws CameraStreamError  after which nothing more can be read
    std::optional<CameraMessage> advance(std::size_t count);

private:
    std::optional<CameraMessage> readHeader();

    Header header{};
    std::shared_ptr<GreyFrame> frame;  // while its pixels come
    std::size_t filled = 0;            // of the header, or of the frame
};
