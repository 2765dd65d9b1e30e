#pragma once

#include "RelayCore/Members.h"
#include "RelayCore/Parcel.h"
#include "RelayCore/RelayCounters.h"
#include "RelayCore/RelayLimits.h"
#include "RelayCore/RelayStore.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

/// Holds packs until they are proved, and writes to the store what takes long.
///
/// Writing goes in batches: a pack that is proved within a few milliseconds is never written, which is
/// most of them while their readers are there. Operations that touch the store say so; after a
/// `StoreError` nothing is lost and the next batch tries again.
class Mailroom {
public:
    /// From the arrival of a pack to the batch that writes it, at most.
    static constexpr Seconds batchDelay = 0.06;
    /// A pack that a link holds is left out of a batch while it is younger than this.
    static constexpr Seconds heldDelay = 0.02;
    /// What is read from the store, and sent, at once.
    static constexpr std::size_t pagePacks = 1000;
    static constexpr std::size_t pageBytes = 256 * 1024;

    Mailroom(const RelayLimits& limits, RelayStore& store, RelayCounters& counters);
    Mailroom(const Mailroom&) = delete;
    Mailroom& operator=(const Mailroom&) = delete;

    /// Learns where the ids of mail stand. @throws StoreError
    void start();
    /// Learns what waits for a member. @throws StoreError
    void look(Member& member);

    /// Whether one more pack of this size may wait for a member who is away.
    [[nodiscard]] bool hasRoom(const Member& target, std::size_t size) const;
    /// Takes a pack in. The caller copies the handle for each link that is to be sent it, and then releases its
    /// own: a pack that no link has by then is mail, or is dropped. Every copy comes back by `prove` or `release`.
    [[nodiscard]] ParcelHandle accept(Member& target, ByteView frame, Date now, bool isMail);
    /// A link that had it has proved that it arrived.
    void prove(ParcelHandle parcel, Date now);
    /// A link that had it is gone. The last one makes it mail again.
    void release(ParcelHandle parcel);
    /// Forgets all that waits for somebody who is no member any more; no link may have any of it.
    void forget(Member& member);

    /// The id of the pack that came last, to anybody.
    std::int64_t lastAccepted() const { return lastId; }
    /// For a link that has had its member's packs up to `after`, and will have those behind `last`: what is not
    /// proved of those between, mail or held by other links, in order. One page; empty when there is no more.
    /// @throws StoreError
    [[nodiscard]] std::vector<ParcelHandle> nextPage(Member& member, std::int64_t after, std::int64_t last);

    /// When `writeBatch` is due next.
    std::optional<Date> batchDue() const { return due; }
    /// Writes what is due. @throws StoreError
    void writeBatch(Date now);
    /// Writes everything that is not proved. @throws StoreError
    void writeAll();
    /// Deletes mail that is too old. @throws StoreError
    void expire(const Members& members, Date now);

private:
    /// Writes what nobody holds, and of what a link holds that for which `isDue` says so.
    template <class IsDue>
    void write(const IsDue& isDue);
    void pending(Date now);

    const RelayLimits& limits;
    RelayStore& store;
    RelayCounters& counters;
    std::int64_t lastId = 0;
    std::deque<ParcelHandle> queue;       // to be written, by id; proved ones are among them
    std::vector<std::int64_t> forgotten;  // proved, and still in the store
    std::optional<Date> due;
};
