#pragma once

#include <QSize>

#include <cstddef>
#include <optional>
#include <span>

/// One of the ways in which a camera can send its pictures.
struct CameraOffer {
    QSize size;              // in pixels
    float rate = 0;          // the most frames a second
    bool isPacked = false;   // compressed, such as JPEG, which costs work and sharpness
    bool isReadable = true;  // in a format that we can turn into grey

    bool operator==(const CameraOffer&) const = default;
};

/// Chooses the offer nearest to 640 x 480 at 15 to 30 frames a second: large enough for a code that fills a third of
/// the picture, and small enough to be searched between two frames. A picture of twice the pixels is better than one
/// of half, a smooth one better than a jerky one, a plain one better than a compressed one.
///
/// @return the index of the offer, or nothing if none is readable
std::optional<std::size_t> bestOffer(std::span<const CameraOffer> offers);
