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

/// Holds packs until they are proved, and writes those that take long to the store.
///
/// It writes in batches: a pack that is proved within a few milliseconds is never written, and most packs are
/// while their readers are online. Operations that touch the store say so; after a `StoreError` nothing is lost
/// and the next batch tries again.
class Mailroom {
public:
    /// The longest time from the arrival of a pack to the batch that writes it.
    static constexpr Seconds batchDelay = 0.06;
    /// A pack that a link holds is left out of a batch while it is younger than this.
    static constexpr Seconds heldDelay = 0.02;
    /// The size of a page: the packs that are read from the store, and sent, at once.
    static constexpr std::size_t pagePacks = 1000;
    static constexpr std::size_t pageBytes = 256 * 1024;

    Mailroom(const RelayLimits& limits, RelayStore& store, RelayCounters& counters);
    Mailroom(const Mailroom&) = delete;
    Mailroom& operator=(const Mailroom&) = delete;

    /// Reads the highest id of kept mail: new ids go on from it. @throws StoreError
    void start();
    /// Reads how much mail waits for a member. @throws StoreError
    void look(Member& member);

    /// Whether one more pack of this size may wait for a member who is away.
    [[nodiscard]] bool hasRoom(const Member& target, std::size_t size) const;
    /// Takes a pack in. The caller copies the handle for each link that the pack is sent to, and then releases its
    /// own. A pack that no link holds by then becomes mail, or is dropped unless `isMail`. The caller must return
    /// every copy through `prove` or `release`.
    [[nodiscard]] ParcelHandle accept(Member& target, ByteView frame, Date now, bool isMail);
    /// A link that held the pack has proved that it arrived.
    void prove(ParcelHandle parcel, Date now);
    /// A link that held the pack is gone. An unproved pack whose last holder is gone becomes mail again.
    void release(ParcelHandle parcel);
    /// Forgets all packs for a member who is being removed. No link may hold one of them.
    void forget(Member& member);

    /// The id of the pack that came last, to anybody.
    std::int64_t lastAccepted() const { return lastId; }
    /// The member's unproved packs with ids above `after` and up to `last`, in order: mail, and packs that other
    /// links hold. At most one page; empty when there are no more.
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
    /// Writes the queued packs that no link holds, and those held packs for which `isDue` returns true.
    template <class IsDue>
    void write(const IsDue& isDue);
    void pending(Date now);

    const RelayLimits& limits;
    RelayStore& store;
    RelayCounters& counters;
    std::int64_t lastId = 0;
    std::deque<ParcelHandle> queue;       // packs to be written, by id; some may be proved meanwhile
    std::vector<std::int64_t> forgotten;  // ids of proved packs that are still in the store
    std::optional<Date> due;
};
