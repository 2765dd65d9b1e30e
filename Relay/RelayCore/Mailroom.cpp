#include "RelayCore/Mailroom.h"

#include "Base/Check.h"

#include <algorithm>

namespace {

/// How many handles a parcel has outside the queue. Not for a proved parcel: its state does not tell whether
/// the queue still has a handle to it.
std::uint32_t holders(const ParcelHandle& parcel) {
    return parcel.count() - (parcel->state == Parcel::State::queued ? 1 : 0);
}

}  // namespace

Mailroom::Mailroom(const RelayLimits& limits, RelayStore& store, RelayCounters& counters)
    : limits(limits), store(store), counters(counters) {}

void Mailroom::start() { lastId = store.lastMailId(); }

void Mailroom::look(Member& member) { member.mail = store.usage(member.key); }

bool Mailroom::hasRoom(const Member& target, std::size_t size) const {
    return target.mail.packs < limits.mailPacks && target.mail.bytes + size <= limits.mailBytes;
}

ParcelHandle Mailroom::accept(Member& target, ByteView frame, Date now, bool isMail) {
    auto parcel = ParcelHandle::make(target, ++lastId, now, Bytes(frame.begin(), frame.end()),
                                     isMail ? Parcel::State::queued : Parcel::State::unkept);
    if (isMail) {
        queue.push_back(parcel);
        pending(now);
    }
    return parcel;
}

void Mailroom::prove(ParcelHandle parcel, Date now) {
    if (parcel->state == Parcel::State::stored) {
        parcel->target->heldKept.erase(parcel->id);
        forgotten.push_back(parcel->id);
        pending(now);
    }
    parcel->state = Parcel::State::proved;
    // Proofs come in about the order of arrival, so removing proved packs at the front keeps the queue short.
    while (!queue.empty() && queue.front()->state == Parcel::State::proved) queue.pop_front();
}

void Mailroom::release(ParcelHandle parcel) {
    const bool isOwed = parcel->state == Parcel::State::queued || parcel->state == Parcel::State::stored;
    if (!isOwed || holders(parcel) > 1) return;
    ++parcel->target->mail.packs;
    parcel->target->mail.bytes += parcel->frame.size();
    if (parcel->state == Parcel::State::stored) parcel->target->heldKept.erase(parcel->id);
}

void Mailroom::forget(Member& member) {
    std::erase_if(queue, [&](const ParcelHandle& parcel) {
        if (parcel->target != &member) return false;
        check(parcel.count() == 1, "A link holds a pack for somebody who is no member.");
        return true;
    });
}

std::vector<ParcelHandle> Mailroom::nextPage(Member& member, std::int64_t after, std::int64_t last) {
    // Delete the proved packs from the store and write the member's unproved ones, even those that a link holds:
    // then the rows of the store are exactly the packs to be sent, in order.
    write([&](const Parcel& parcel) { return parcel.target == &member && parcel.id <= last; });
    std::vector<ParcelHandle> page;
    for (StoredPack& row : store.mail(member.key, after, pagePacks, pageBytes)) {
        if (row.id > last) break;
        if (const auto held = member.heldKept.find(row.id); held != member.heldKept.end()) {
            page.emplace_back(*held->second);
            continue;
        }
        auto& parcel = page.emplace_back(
            ParcelHandle::make(member, row.id, row.arrived, std::move(row.frame), Parcel::State::stored));
        member.heldKept.emplace(row.id, &*parcel);
        member.mail.packs -= std::min<std::uint64_t>(member.mail.packs, 1);
        member.mail.bytes -= std::min<std::uint64_t>(member.mail.bytes, parcel->frame.size());
    }
    // The link has been sent all mail in the store, so packs that are still counted were deleted for their age.
    if (page.empty()) member.mail = {};
    return page;
}

void Mailroom::writeBatch(Date now) {
    if (!due || now < *due) return;
    write([oldest = now - heldDelay](const Parcel& parcel) { return parcel.arrived <= oldest; });
    // A pack that was too young for this batch decides when the next one is due.
    if (!queue.empty()) due = std::max(queue.front()->arrived + batchDelay, now);
}

void Mailroom::writeAll() {
    write([](const Parcel&) { return true; });
}

void Mailroom::expire(const Members& members, Date now) {
    write([](const Parcel&) { return false; });
    counters.mailExpired += store.expireMail(now - limits.mailDays * 86400);
    for (Member* member : members.all()) {
        if (member->mail.packs == 0) continue;
        const MailUsage kept = store.usage(member->key);
        MailUsage held;
        for (const auto& [id, parcel] : member->heldKept) {
            ++held.packs;
            held.bytes += parcel->frame.size();
        }
        member->mail.packs = kept.packs - std::min(kept.packs, held.packs);
        member->mail.bytes = kept.bytes - std::min(kept.bytes, held.bytes);
    }
}

template <class IsDue>
void Mailroom::write(const IsDue& isDue) {
    std::vector<MailItem> items;
    for (const ParcelHandle& parcel : queue) {
        if (parcel->state == Parcel::State::proved) continue;
        if (holders(parcel) == 0 || isDue(*parcel))
            items.push_back({parcel->id, parcel->target->key, parcel->arrived, parcel->frame});
    }
    if (!items.empty() || !forgotten.empty()) store.changeMail(items, forgotten);
    counters.packsStored += items.size();
    forgotten.clear();
    due.reset();

    auto written = items.begin();
    std::erase_if(queue, [&](const ParcelHandle& parcel) {
        if (parcel->state == Parcel::State::proved) return true;
        if (written == items.end() || written->id != parcel->id) return false;
        ++written;
        if (holders(parcel) > 0) parcel->target->heldKept.emplace(parcel->id, &*parcel);
        parcel->state = Parcel::State::stored;
        return true;
    });
    if (!queue.empty()) due = queue.front()->arrived + batchDelay;
}

void Mailroom::pending(Date now) {
    if (!due) due = now + batchDelay;
}
