#pragma once

#include <cstdint>

/// What has happened since the relay started; every field only grows.
struct RelayCounters {
    std::uint64_t linksOpened = 0;
    std::uint64_t linksAuthenticated = 0;
    std::uint64_t packsReceived = 0;   // frames from members, commands included
    std::uint64_t packsDelivered = 0;  // packs handed to a link, live or from the mail
    std::uint64_t packsProved = 0;     // packs whose arrival a link has proved
    std::uint64_t packsStored = 0;     // packs written to disk
    std::uint64_t mailExpired = 0;     // packs deleted for their age
    std::uint64_t listsSent = 0;
    std::uint64_t commands = 0;
    std::uint64_t storeFailures = 0;

    // Why packs were refused with an error to their author.
    std::uint64_t refusedGarbage = 0;  // no pack, or not sealed by the link's key
    std::uint64_t refusedAuthor = 0;   // another author than the link's key
    std::uint64_t refusedTarget = 0;   // an unknown target
    std::uint64_t refusedTooLarge = 0;
    std::uint64_t refusedFullMailbox = 0;

    // Why links were closed by the relay.
    std::uint64_t closedUnknownKey = 0;     // 1008: the first pack's author is no member
    std::uint64_t closedBadFirstPack = 0;   // 1008: the first pack is not the sealed command "list"
    std::uint64_t closedRemoved = 0;        // 1008: the member was removed
    std::uint64_t closedFirstPackLate = 0;  // 1013
    std::uint64_t closedSlowReader = 0;     // 1013
    std::uint64_t closedTooFast = 0;        // 1013
    std::uint64_t closedAddressLinks = 0;   // 1013
    std::uint64_t closedTooManyLinks = 0;   // 1013
    std::uint64_t closedSilent = 0;         // 1001
    std::uint64_t closedStore = 0;          // 1011
    std::uint64_t closedShutDown = 0;       // 1001
};

/// How things stand now.
struct RelayGauges {
    std::uint64_t links = 0;  // open links, authenticated or not
    std::uint64_t members = 0;
    std::uint64_t membersOnline = 0;
    std::uint64_t mailPacks = 0;  // packs that no link holds
    std::uint64_t mailBytes = 0;
    std::uint64_t unprovedPacks = 0;  // packs that a link holds and has not proved
};
