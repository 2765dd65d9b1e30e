#pragma once

#include "RelayCore/Members.h"
#include "RelayCore/Parcel.h"
#include "RelayCore/RelayLink.h"

#include "StateKit/Date.h"
#include "TweetNacl/Nacl.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

/// What the relay knows of one open link.
struct LinkState {
    RelayLink* link = nullptr;
    LinkState** slot = nullptr;  // where the link keeps its pointer to this
    std::size_t index = 0;       // in the list of all links
    std::string address;
    Nacl::KeyPair keys;                        // made for this link alone
    std::optional<Nacl::SharedKey> sharedKey;  // with the member
    Member* member = nullptr;                  // null until the first pack
    Date openedAt;
    Date heardAt;

    std::uint64_t knownList = 0;  // the version of the list that was sent last
    std::size_t listHash = 0;

    std::deque<ParcelHandle> unproved;  // sent, in order
    std::deque<ParcelHandle> behind;    // live packs that wait until all older ones are proved
    std::size_t behindBytes = 0;

    // While `isCollecting`, the link is sent the unproved packs that arrived before it, page by page: mail, and
    // packs that older links of the member hold.
    bool isCollecting = false;
    std::uint64_t pageEnd = 0;       // `parcelsSent` behind the last page
    std::int64_t collectedId = 0;    // the id of the last parcel that was collected
    std::int64_t lastToCollect = 0;  // the last id that a pack got before this link was admitted

    // Counted from the opening of the link; the difference between sent and proved is on its way.
    std::uint64_t parcelsSent = 0;
    std::uint64_t parcelsProved = 0;
    std::uint64_t bytesSent = 0;
    std::uint64_t bytesProved = 0;

    // One ping is under way at a time. Its pong proves all that was sent before that ping.
    bool isPinging = false;
    std::uint64_t pingPayload = 0;
    std::uint64_t pingedParcels = 0;
    std::uint64_t pingedBytes = 0;
    Date pingedAt;

    bool isTooFast = false;  // has sent more than its key may, and is closed at the end of the turn
    bool isTouched = false;  // is in the list of links that `turnEnded` must look at
};
