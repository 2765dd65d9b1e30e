#pragma once

#include <cstdint>
#include <string_view>

/// A colour in sRGB, each part from 0 to 255.
struct Rgb {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;

    bool operator==(const Rgb&) const = default;
};

/// The colour in which a person's name is written: the same in every window and at every start.
///
/// The public key decides the hue. The perceived lightness is one for all, so that all names are equally
/// readable: the contrast with the background (WCAG 2) is at least 4.5 on white and near-white, and in the dark
/// variant on black and near-black.
namespace AuthorColor {

Rgb of(std::string_view publicKey, bool isOnDark);

/// Contrast ratio of two colours, from 1 to 21 (WCAG 2.1, relative luminance).
double contrast(Rgb one, Rgb other);

}  // namespace AuthorColor
