#pragma once

#include "StateKit/Date.h"

#include <cstddef>
#include <cstdint>

/// What one member, one link, one address may ask of the relay. The shell has an option for each.
///
/// Each limit says what happens at it: a close code (never 1008, which tells a client that it was
/// thrown out for good) or an error text to the author, and a counter in `RelayCounters`.
struct RelayLimits {
    /// A larger frame is not read at all; its link is closed with 1009. Kept by whoever reads frames.
    std::size_t frameBytes = 1024 * 1024;
    /// A larger pack is refused with an error to its author; nothing of it is stored.
    std::size_t packBytes = 256 * 1024;
    /// Bytes sent to a link that it has not proved to have received. Above it, 1013.
    std::size_t queuedBytes = 8 * 1024 * 1024;
    /// Texts a second for one key over a longer time: a text to the room is a pack for each member, so
    /// the packs a second are this times the number of members (counted as 10 at least). Above it, 1013.
    double textsPerSecond = 100;
    /// How many seconds' worth of texts a key may send at once.
    Seconds burst = 5;
    /// Links open at once from one address, and altogether. Above it, 1013.
    std::size_t linksPerAddress = 256;
    std::size_t links = 10000;
    /// Time from the greeting to the first pack. Over it, 1013.
    Seconds firstPack = 10;
    /// A link that nothing was heard of for `silence / 2` is pinged; one that has left a ping unanswered
    /// for `silence` is closed with 1001.
    Seconds silence = 60;
    /// Packs that wait for one member; one more is refused with an error to its author.
    std::uint64_t mailPacks = 10000;
    std::uint64_t mailBytes = 32 * 1024 * 1024;
    /// How long a pack waits, in days for which a relay runs; then it is deleted.
    double mailDays = 30;
};
