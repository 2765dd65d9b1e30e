#pragma once

#include <QSize>

#include <cstddef>
#include <optional>
#include <span>

/// One of the ways in which a camera can send its pictures.
struct CameraOffer {
    QSize size;              // in pixels
    float rate = 0;          // frames a second at most
    bool isPacked = false;   // as JPEG or the like: has to be unpacked, and is blurred by it
    bool isReadable = true;  // in a form that can be made grey

    bool operator==(const CameraOffer&) const = default;
};

/// The offer nearest to 640 x 480 at 15 to 30 frames a second: enough for a code that fills a third of the picture, and
/// little enough to look through between two frames. A larger picture is better than one as much smaller, a smooth
/// one better than a halting one, a plain one better than a packed one.
///
/// @return its place, or nothing if none is readable
std::optional<std::size_t> bestOffer(std::span<const CameraOffer> offers);
