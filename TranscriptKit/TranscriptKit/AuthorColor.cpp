#include "TranscriptKit/AuthorColor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace {

// CIE lightness, from 0 to 100, on a light and on a dark background. Lightness alone decides luminance, and so
// the contrast: some 5 on #f5f5f5, and 6 on #2b2b2b.
constexpr double lightnessOnLight = 44;
constexpr double lightnessOnDark = 70;
// The upper limit of chroma. A screen can show few hues with so much at these lightnesses; the others get less.
constexpr double mostChroma = 60;

/// FNV-1a, then the last step of MurmurHash3, which makes a change of the last bytes reach the highest bits.
std::uint64_t hashOf(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325u;
    for (const char c : text) hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001b3u;
    hash = (hash ^ (hash >> 33)) * 0xff51afd7ed558ccdu;
    hash = (hash ^ (hash >> 33)) * 0xc4ceb9fe1a85ec53u;
    return hash ^ (hash >> 33);
}

using Linear = std::array<double, 3>;  // red, green and blue in linear light; a screen can show 0 to 1

/// CIE 1976 L*a*b* under D65, in its polar form.
Linear linear(double lightness, double chroma, double hue) {
    constexpr double third = 6.0 / 29;
    const auto grown = [](double f) { return f > third ? f * f * f : 3 * third * third * (f - 4.0 / 29); };
    const double middle = (lightness + 16) / 116;
    const double x = 0.95047 * grown(middle + chroma * std::cos(hue) / 500);
    const double y = grown(middle);
    const double z = 1.08883 * grown(middle - chroma * std::sin(hue) / 200);
    return {3.2404542 * x - 1.5371385 * y - 0.4985314 * z, -0.9692660 * x + 1.8760108 * y + 0.0415560 * z,
            0.0556434 * x - 0.2040259 * y + 1.0572252 * z};
}

bool canBeShown(const Linear& color) {
    return std::all_of(color.begin(), color.end(), [](double part) { return part >= 0 && part <= 1; });
}

std::uint8_t encoded(double light) {
    const double part = light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
    return static_cast<std::uint8_t>(std::lround(std::clamp(part, 0.0, 1.0) * 255));
}

double luminance(Rgb color) {
    const auto light = [](std::uint8_t part) {
        const double value = part / 255.0;
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * light(color.red) + 0.7152 * light(color.green) + 0.0722 * light(color.blue);
}

}  // namespace

Rgb AuthorColor::of(std::string_view publicKey, bool isOnDark) {
    const double hue = static_cast<double>(hashOf(publicKey) >> 11) * 0x1p-53 * 2 * std::numbers::pi;
    const double lightness = isOnDark ? lightnessOnDark : lightnessOnLight;
    double low = 0, high = mostChroma;
    if (canBeShown(linear(lightness, high, hue))) low = high;
    for (int step = 0; step < 20 && low < high; ++step) {
        const double middle = (low + high) / 2;
        (canBeShown(linear(lightness, middle, hue)) ? low : high) = middle;
    }
    const Linear color = linear(lightness, low, hue);
    return {encoded(color[0]), encoded(color[1]), encoded(color[2])};
}

double AuthorColor::contrast(Rgb one, Rgb other) {
    const double a = luminance(one), b = luminance(other);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}
