#pragma once

#include "Base/Bytes.h"
#include "StateKit/Date.h"

#include <cstdint>

struct Member;

/// A pack on its way to one member, in memory.
///
/// `Mailroom` makes and destroys it: it lives while a link holds it or while it waits to be written.
struct Parcel {
    Member* target;
    std::int64_t id;
    Date arrived;
    Bytes frame;
    std::uint32_t holders = 0;  // links that were or will be sent it, and have neither proved nor died
    bool isFresh = false;       // waits in the mailroom's queue to be written, unless it is proved before
    bool isKept = false;        // is in the store
    bool isDone = false;        // proved, or to be forgotten: never to be delivered again
    bool isMail = true;         // false for a pack to oneself, which is dropped with its last holder
};
