#include "RelayCore/Mailroom.h"

#include "Base/Check.h"

#include <algorithm>

Mailroom::Mailroom(const RelayLimits& limits, RelayStore& store, RelayCounters& counters)
    : limits(limits), store(store), counters(counters) {}

Mailroom::~Mailroom() {
    for (Parcel* parcel : fresh) delete parcel;
}

void Mailroom::start() { lastId = store.lastMailId(); }

void Mailroom::look(Member& member) { member.mail = store.usage(member.key); }

bool Mailroom::hasRoom(const Member& target, std::size_t size) const {
    return target.mail.packs < limits.mailPacks && target.mail.bytes + size <= limits.mailBytes;
}

Parcel& Mailroom::accept(Member& target, ByteView frame, Date now, bool isMail) {
    auto* parcel = new Parcel{&target, ++lastId, now, Bytes(frame.begin(), frame.end())};
    parcel->isMail = isMail;
    if (isMail) {
        parcel->isFresh = true;
        fresh.push_back(parcel);
        pending(now);
    }
    return *parcel;
}

void Mailroom::settle(Parcel& parcel) {
    if (parcel.holders > 0) return;
    if (parcel.isMail && !parcel.isDone) {
        ++parcel.target->mail.packs;
        parcel.target->mail.bytes += parcel.frame.size();
        if (parcel.isKept) parcel.target->heldKept.erase(parcel.id);
    }
    dismiss(parcel);
}

void Mailroom::prove(Parcel& parcel, Date now) {
    --parcel.holders;
    if (!parcel.isDone) {
        parcel.isDone = true;
        if (parcel.isKept) {
            parcel.target->heldKept.erase(parcel.id);
            forgotten.push_back(parcel.id);
            pending(now);
        }
    }
    dismiss(parcel);
    // Proofs come in about the order of arrival, so that the queue stays short and the memory warm.
    while (!fresh.empty() && fresh.front()->isDone) {
        Parcel& first = *fresh.front();
        fresh.pop_front();
        first.isFresh = false;
        dismiss(first);
    }
}

void Mailroom::release(Parcel& parcel, Date now) {
    --parcel.holders;
    if (parcel.isFresh) pending(now);
    settle(parcel);
}

void Mailroom::forget(Member& member) {
    std::erase_if(fresh, [&](Parcel* parcel) {
        if (parcel->target != &member) return false;
        check(parcel->holders == 0, "A link holds a pack for somebody who is no member.");
        delete parcel;
        return true;
    });
}

std::vector<Parcel*> Mailroom::nextPage(Member& member, std::int64_t after, std::int64_t last) {
    // What is proved must be gone from the store, and what is not must be in it, held or not: then the
    // store alone says what is owed, and in which order.
    write([&](const Parcel& parcel) { return parcel.target == &member && parcel.id <= last; });
    std::vector<Parcel*> page;
    for (StoredPack& row : store.mail(member.key, after, pagePacks, pageBytes)) {
        if (row.id > last) break;
        const auto [place, isMail] = member.heldKept.try_emplace(row.id);
        if (isMail) {
            place->second = new Parcel{&member, row.id, row.arrived, std::move(row.frame)};
            place->second->isKept = true;
            member.mail.packs -= std::min<std::uint64_t>(member.mail.packs, 1);
            member.mail.bytes -= std::min<std::uint64_t>(member.mail.bytes, place->second->frame.size());
        }
        hold(*place->second);
        page.push_back(place->second);
    }
    // By now one link has had all that there was: what is still counted has been deleted for its age.
    if (page.empty()) member.mail = {};
    return page;
}

void Mailroom::writeBatch(Date now) {
    if (!due || now < *due) return;
    write([oldest = now - heldDelay](const Parcel& parcel) { return parcel.arrived <= oldest; });
    // What was too young for this batch is the first of the next.
    if (!fresh.empty()) due = std::max(fresh.front()->arrived + batchDelay, now);
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
    for (const Parcel* parcel : fresh) {
        if (parcel->isDone) continue;
        if (parcel->holders == 0 || isDue(*parcel))
            items.push_back({parcel->id, parcel->target->key, parcel->arrived, parcel->frame});
    }
    if (!items.empty() || !forgotten.empty()) store.changeMail(items, forgotten);
    counters.packsStored += items.size();
    forgotten.clear();
    due.reset();

    auto written = items.begin();
    std::erase_if(fresh, [&](Parcel* parcel) {
        const bool isWritten = written != items.end() && written->id == parcel->id;
        if (!isWritten && !parcel->isDone) return false;
        parcel->isFresh = false;
        if (isWritten) {
            ++written;
            parcel->isKept = true;
            if (parcel->holders > 0) parcel->target->heldKept.emplace(parcel->id, parcel);
        }
        dismiss(*parcel);
        return true;
    });
    if (!fresh.empty()) due = fresh.front()->arrived + batchDelay;
}

void Mailroom::pending(Date now) {
    if (!due) due = now + batchDelay;
}

void Mailroom::dismiss(Parcel& parcel) {
    if (parcel.holders == 0 && !parcel.isFresh) delete &parcel;
}
