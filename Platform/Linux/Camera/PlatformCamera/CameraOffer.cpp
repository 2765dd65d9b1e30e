#include "PlatformCamera/CameraOffer.h"

#include <cmath>

namespace {

constexpr double wantedPixels = 640.0 * 480.0;

/// How bad an offer is, in doublings of the number of pixels.
double badness(const CameraOffer& offer) {
    const double doublings = std::log2(offer.size.width() * static_cast<double>(offer.size.height()) / wantedPixels);
    double sum = doublings < 0 ? -3 * doublings : doublings;
    // Below 15 frames a second the picture is jerky; more than 30 cost work and gain nothing.
    if (offer.rate < 14.9F)
        sum += 2;
    else if (offer.rate > 31)
        sum += 0.1;
    if (offer.isPacked) sum += 0.5;
    return sum;
}

}  // namespace

std::optional<std::size_t> bestOffer(std::span<const CameraOffer> offers) {
    std::optional<std::size_t> best;
    for (std::size_t at = 0; at < offers.size(); ++at) {
        if (!offers[at].isReadable || offers[at].size.isEmpty()) continue;
        if (!best || badness(offers[at]) < badness(offers[*best])) best = at;
    }
    return best;
}
