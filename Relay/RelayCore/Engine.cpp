#include "RelayCore/Engine.h"

#include "Base/Check.h"
#include "VimbleWire/ServerMessage.h"

#include <algorithm>
#include <string>

namespace {

constexpr Seconds checkInterval = 1;
constexpr Seconds retryInterval = 1;
constexpr Seconds expiryInterval = 3600;
// A list is as long as the number of members, and goes to each of them: above a hundred members, a
// thousand arrivals in one second would otherwise be a million lists.
constexpr Seconds gatherFew = 0.005;
constexpr Seconds gatherMany = 1;
constexpr std::size_t manyMembers = 100;
constexpr std::size_t fewestMembers = 10;

}  // namespace

RelayCore::Engine::Engine(const RelayLimits& limits, RelayStore& store, RelayHost& host)
    : limits(limits), store(store), host(host), mailroom(this->limits, store, counters) {}

RelayCore::Engine::~Engine() {
    isStopping = true;
    while (!links.empty()) drop(*links.back(), {});
}

void RelayCore::Engine::start(Date now) {
    mailroom.start();
    for (const StoredMember& stored : store.members()) addMember(stored);
    // The first look for old mail comes after an hour, so that nothing is deleted before the person who starts
    // the relay has seen it run.
    expiryDue = now + expiryInterval;
    schedule(now);
}

// ---- links

void RelayCore::Engine::linkOpened(RelayLink& link, LinkState*& slot, std::string_view address, Date now) {
    check(slot == nullptr, "A link was opened twice.");
    ++counters.linksOpened;
    const auto refuseLink = [&](CloseCode code, std::string_view reason, Counter counter) {
        ++(counters.*counter);
        link.close(code, reason);
    };
    if (isStopping) return refuseLink(CloseCode::goingAway, "the relay stops", &RelayCounters::closedShutDown);
    if (failure) return refuseLink(CloseCode::internalError, "the relay's database fails", &RelayCounters::closedStore);
    if (links.size() >= limits.links)
        return refuseLink(CloseCode::tryAgainLater, "too many links", &RelayCounters::closedTooManyLinks);
    std::size_t& fromThere = addresses[std::string(address)];
    if (fromThere >= limits.linksPerAddress)
        return refuseLink(CloseCode::tryAgainLater, "too many links from this address",
                          &RelayCounters::closedAddressLinks);
    ++fromThere;

    auto* state = new LinkState;
    state->link = &link;
    state->slot = &slot;
    state->index = links.size();
    state->address = address;
    state->keys = host.linkKeys();
    state->openedAt = state->heardAt = now;
    slot = state;
    links.push_back(state);
    link.send(Greeting::encoded(state->keys.publicKey));
    if (!checkDue) checkDue = now + checkInterval;
}

void RelayCore::Engine::frameReceived(LinkState& link, ByteView frame, Date now) {
    link.heardAt = now;
    if (!link.member) return firstPack(link, frame, now);

    ++counters.packsReceived;
    // The pack that goes over the limit is still passed on, because a pack that was read must not be lost. The
    // link is closed at the end of the turn; until then it gets no answers: see `isOverBounds`.
    if (!takeToken(*link.member, now)) {
        link.isTooFast = true;
        touch(link);
    }
    const auto pack = PackView::of(frame);
    if (pack) return memberPack(link, *pack, frame, now);
    ++counters.refusedGarbage;
    refuse(link, "That was no pack.");
}

void RelayCore::Engine::firstPack(LinkState& link, ByteView frame, Date now) {
    const auto refuseLink = [&](std::string_view reason, Counter counter) {
        close(link, CloseCode::policyViolation, reason, counter, now);
    };
    const auto pack = PackView::of(frame);
    if (!pack || !std::ranges::equal(pack->target, link.keys.publicKey))
        return refuseLink("the first pack must be the command \"list\"", &RelayCounters::closedBadFirstPack);
    Member* member = members.find(pack->author);
    if (!member) return refuseLink("this key is not admitted", &RelayCounters::closedUnknownKey);
    try {
        link.sharedKey.emplace(member->key, link.keys.secretKey);
        const Bytes text = link.sharedKey->open(pack->ciphertext, pack->nonce);
        if (textOf(text) != "list")
            return refuseLink("the first pack must be the command \"list\"", &RelayCounters::closedBadFirstPack);
    } catch (const NaclError&) {
        return refuseLink("the first pack does not open", &RelayCounters::closedBadFirstPack);
    }

    ++counters.linksAuthenticated;
    link.member = member;
    const bool comes = !member->isOnline();
    member->links.push_back(&link);
    if (comes) listChanged(now);
    sendList(link);
    collectIfNeeded(link);
}

void RelayCore::Engine::pongReceived(LinkState& link, std::uint64_t payload, Date now) {
    link.heardAt = now;
    if (!link.isPinging || payload != link.pingPayload) return;
    link.isPinging = false;
    link.bytesProved = link.pingedBytes;
    for (; link.parcelsProved < link.pingedParcels; ++link.parcelsProved) {
        ParcelHandle parcel = std::move(link.unproved.front());
        link.unproved.pop_front();
        ++counters.packsProved;
        mailroom.prove(std::move(parcel), now);
    }
    if (link.bytesSent > link.bytesProved) touch(link);
    if (link.isCollecting && link.parcelsProved >= link.pageEnd) collect(link);
}

void RelayCore::Engine::linkClosed(LinkState& link, Date now) {
    *link.slot = nullptr;
    drop(link, now);
}

void RelayCore::Engine::close(LinkState& link, CloseCode code, std::string_view reason, Counter counter, Date now) {
    ++(counters.*counter);
    *link.slot = nullptr;
    link.link->close(code, reason);
    drop(link, now);
}

void RelayCore::Engine::closeAll(CloseCode code, std::string_view reason, Counter counter, Date now) {
    while (!links.empty()) close(*links.back(), code, reason, counter, now);
}

void RelayCore::Engine::drop(LinkState& link, Date now) {
    const std::unique_ptr<LinkState> owned(&link);
    links.back()->index = link.index;
    std::swap(links[link.index], links.back());
    links.pop_back();
    if (link.isTouched) std::erase(touched, &link);
    if (const auto found = addresses.find(link.address); --found->second == 0) addresses.erase(found);

    Member* member = link.member;
    if (!member) return;
    std::erase(member->links, &link);
    if (!member->isOnline()) listChanged(now);
    for (ParcelHandle& parcel : link.unproved) mailroom.release(std::move(parcel));
    for (ParcelHandle& parcel : link.behind) mailroom.release(std::move(parcel));
    // The released packs need not be sent to the member's other links: each of these holds every unproved pack
    // already, or is about to collect it.
}

void RelayCore::Engine::touch(LinkState& link) {
    if (link.isTouched) return;
    link.isTouched = true;
    touched.push_back(&link);
}

void RelayCore::Engine::turnEnded(Date now) {
    while (!touched.empty()) {
        LinkState& link = *touched.back();
        touched.pop_back();
        link.isTouched = false;
        if (link.isTooFast)
            close(link, CloseCode::tryAgainLater, "too many packs", &RelayCounters::closedTooFast, now);
        else if (isOverBounds(link))
            close(link, CloseCode::tryAgainLater, "too slow", &RelayCounters::closedSlowReader, now);
        else if (!link.isPinging && link.bytesSent > link.bytesProved)
            ping(link, now);
    }
}

bool RelayCore::Engine::isOverBounds(const LinkState& link) const {
    return link.isTooFast || link.bytesSent - link.bytesProved + link.behindBytes > limits.queuedBytes;
}

void RelayCore::Engine::ping(LinkState& link, Date now) {
    link.isPinging = true;
    link.pingedAt = now;
    link.pingedParcels = link.parcelsSent;
    link.pingedBytes = link.bytesSent;
    link.link->ping(++link.pingPayload);
}

void RelayCore::Engine::lookForSilence(Date now) {
    // Go from the back: closing a link moves the last one into its place, and the last has been looked at.
    for (std::size_t index = links.size(); index-- > 0;) {
        LinkState& link = *links[index];
        if (!link.member) {
            if (now - link.openedAt >= limits.firstPack)
                close(link, CloseCode::tryAgainLater, "no first pack", &RelayCounters::closedFirstPackLate, now);
        } else if (link.isPinging) {
            if (now - link.pingedAt >= limits.silence)
                close(link, CloseCode::goingAway, "silent", &RelayCounters::closedSilent, now);
        } else if (now - link.heardAt >= limits.silence / 2) {
            ping(link, now);
        }
    }
}

bool RelayCore::Engine::takeToken(Member& member, Date now) {
    const double rate = limits.textsPerSecond * static_cast<double>(std::max(members.count(), fewestMembers));
    member.tokens = std::min(member.tokens + (now - member.tokensAt) * rate, rate * limits.burst);
    member.tokensAt = now;
    member.tokens -= 1;
    return member.tokens >= 0;
}

// ---- packs

void RelayCore::Engine::memberPack(LinkState& link, const PackView& pack, ByteView frame, Date now) {
    Member& author = *link.member;
    if (!std::ranges::equal(pack.author, author.key)) {
        ++counters.refusedAuthor;
        return refuse(link, "The author of a pack must be the key of its link.");
    }
    if (std::ranges::equal(pack.target, link.keys.publicKey)) return command(link, pack, now);
    if (frame.size() > limits.packBytes) {
        ++counters.refusedTooLarge;
        return refuse(link, "That pack is too large: " + std::to_string(frame.size()) + " bytes, and at most " +
                                std::to_string(limits.packBytes) + " are taken.");
    }
    Member* target = members.find(pack.target);
    if (!target) {
        ++counters.refusedTarget;
        return refuse(link, "There is no member " + Nacl::hex(pack.target) + ".");
    }
    const bool isToSelf = target == &author;
    if (!target->isOnline() && !mailroom.hasRoom(*target, frame.size())) {
        ++counters.refusedFullMailbox;
        return refuse(link, "The mailbox of " + Nacl::hex(pack.target) + " is full.");
    }
    if (isToSelf && author.links.size() == 1) return;

    ParcelHandle parcel = mailroom.accept(*target, frame, now, !isToSelf);
    for (LinkState* reader : target->links) {
        if (reader == &link) continue;
        if (reader->isCollecting) {
            reader->behind.push_back(parcel);
            reader->behindBytes += frame.size();
            touch(*reader);
        } else {
            push(*reader, parcel, &author);
        }
    }
    mailroom.release(std::move(parcel));
}

void RelayCore::Engine::push(LinkState& link, ParcelHandle parcel, const Member* author) {
    // The list must go first: a client drops packs from an author whom no list has named to it.
    if (author && link.knownList < author->since) sendList(link);
    link.link->send(parcel->frame);
    ++link.parcelsSent;
    link.bytesSent += parcel->frame.size();
    link.unproved.push_back(std::move(parcel));
    ++counters.packsDelivered;
    touch(link);
}

void RelayCore::Engine::collectIfNeeded(LinkState& link) {
    // The relay can't tell whether an older link of the member is dead or just slow. So it takes the packs that
    // such a link has not proved for lost: the new link is sent them too, before anything newer, and the first
    // proof from either link settles a pack. If the older link lives, it belongs to another client, which
    // neither misses a pack nor gets one twice by this.
    const auto isOwing = [&](const LinkState* each) {
        return each != &link && (!each->unproved.empty() || !each->behind.empty() || each->isCollecting);
    };
    if (link.member->mail.packs == 0 && std::ranges::none_of(link.member->links, isOwing)) return;
    link.isCollecting = true;
    link.lastToCollect = mailroom.lastAccepted();
    collect(link);
}

void RelayCore::Engine::collect(LinkState& link) {
    const auto namesKnown = [&] { return link.knownList >= members.namesVersion(); };
    const auto authorOf = [&](const Parcel& parcel) {
        return namesKnown() ? nullptr : members.find(ByteView(parcel.frame).first(Nacl::publicKeyBytes));
    };
    auto page = mailroom.nextPage(*link.member, link.collectedId, link.lastToCollect);
    for (ParcelHandle& parcel : page) {
        link.collectedId = parcel->id;
        const Member* author = authorOf(*parcel);
        push(link, std::move(parcel), author);
    }
    link.pageEnd = link.parcelsSent;
    if (!page.empty()) return;

    // The link has proved every older pack: now send it the packs that arrived in the meantime.
    link.isCollecting = false;
    for (ParcelHandle& parcel : std::exchange(link.behind, {})) {
        const Member* author = authorOf(*parcel);
        push(link, std::move(parcel), author);
    }
    link.behindBytes = 0;
}

// ---- what the relay itself says

void RelayCore::Engine::say(LinkState& link, ByteView plaintext) {
    const Bytes frame = sealedFrame(link.keys.publicKey, link.member->key, host.nonce(), plaintext, *link.sharedKey);
    link.link->send(frame);
    link.bytesSent += frame.size();
    touch(link);
}

void RelayCore::Engine::answer(LinkState& link, std::string_view text) {
    say(link, ServerMessage::encodedText(ServerMessage::commandResponse, text));
}

void RelayCore::Engine::refuse(LinkState& link, std::string_view text) {
    // A link that is closed at the end of the turn gets no answer: otherwise a flood of empty frames would cause
    // a much larger flood of sealed answers.
    if (isOverBounds(link)) return touch(link);
    say(link, ServerMessage::encodedText(ServerMessage::commandError, text));
}

void RelayCore::Engine::sendList(LinkState& link) {
    say(link, members.listMessage());
    link.knownList = members.listVersion();
    link.listHash = members.listHash();
    ++counters.listsSent;
}

void RelayCore::Engine::listChanged(Date now) {
    members.changed();
    if (!listDue) listDue = now + (members.count() > manyMembers ? gatherMany : gatherFew);
}

void RelayCore::Engine::sendLists() {
    listDue.reset();
    for (LinkState* link : links) {
        if (!link->member || link->knownList == members.listVersion()) continue;
        // A new version can have the same text: a member may have gone and come back before the list was due.
        if (link->listHash == members.listHash())
            link->knownList = members.listVersion();
        else
            sendList(*link);
    }
}

// ---- the store, and time

void RelayCore::Engine::storeFailed(const StoreError& error, Date now) {
    ++counters.storeFailures;
    if (!failure) host.report(std::string("the database fails, all links are closed: ") + error.what());
    failure = error.what();
    retryDue = now + retryInterval;
    closeAll(CloseCode::internalError, "the relay's database fails", &RelayCounters::closedStore, now);
}

void RelayCore::Engine::tryStore(Date now) {
    retryDue.reset();
    mailroom.writeAll();
    // Expiry runs a write statement even when no pack waits to be written, so it shows a store that still fails.
    mailroom.expire(members, now);
    failure.reset();
    reloadMembers(now);
    host.report("the database works again");
}

void RelayCore::Engine::wake(Date now) {
    armed.reset();
    const auto isDue = [now](const std::optional<Date>& due) { return due && *due <= now; };
    if (isStopping) return;
    if (isDue(retryDue)) tryStore(now);
    if (failure) return;
    if (isDue(listDue)) sendLists();
    if (isDue(checkDue)) {
        checkDue = now + checkInterval;
        lookForSilence(now);
        if (links.empty()) checkDue.reset();
    }
    mailroom.writeBatch(now);
    if (isDue(expiryDue)) {
        expiryDue = now + expiryInterval;
        mailroom.expire(members, now);
    }
}

void RelayCore::Engine::schedule(Date now) {
    if (isStopping) return;
    std::optional<Date> next;
    const auto consider = [&next](const std::optional<Date>& due) {
        if (due && (!next || *due < *next)) next = due;
    };
    consider(retryDue);
    if (!failure) {
        consider(listDue);
        consider(checkDue);
        consider(mailroom.batchDue());
        consider(expiryDue);
    }
    // Keep an earlier wake-up even if it is no longer needed: it does no harm, and asking for another costs time.
    if (!next || (armed && *armed <= *next)) return;
    armed = std::max(*next, now);
    host.wakeAt(*armed);
}

bool RelayCore::Engine::shutDown(Date now) {
    isStopping = true;
    closeAll(CloseCode::goingAway, "the relay stops", &RelayCounters::closedShutDown, now);
    try {
        mailroom.writeAll();
        failure.reset();
        return true;
    } catch (const StoreError& error) {
        ++counters.storeFailures;
        failure = error.what();
        return false;
    }
}

RelayGauges RelayCore::Engine::gauges() const {
    RelayGauges gauges;
    gauges.links = links.size();
    gauges.members = members.count();
    gauges.membersOnline = members.onlineCount();
    for (const Member* member : members.all()) {
        gauges.mailPacks += member->mail.packs;
        gauges.mailBytes += member->mail.bytes;
    }
    for (const LinkState* link : links) gauges.unprovedPacks += link->unproved.size() + link->behind.size();
    return gauges;
}
