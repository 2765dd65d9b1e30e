#pragma once

#include "RelayCore/Command.h"
#include "RelayCore/LinkState.h"
#include "RelayCore/Mailroom.h"
#include "RelayCore/Members.h"
#include "RelayCore/RelayCore.h"
#include "VimbleWire/Pack.h"

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

/// What stands behind `RelayCore`: links and presence here, packs in the `Mailroom`.
class RelayCore::Engine {
public:
    Engine(const RelayLimits& limits, RelayStore& store, RelayHost& host);
    ~Engine();

    void start(Date now);

    // The events; each may throw StoreError, and is called through `guarded`.
    void linkOpened(RelayLink& link, LinkState*& slot, std::string_view address, Date now);
    void frameReceived(LinkState& link, ByteView frame, Date now);
    void pongReceived(LinkState& link, std::uint64_t payload, Date now);
    void linkClosed(LinkState& link, Date now);
    void membersChanged(Date now);
    void wake(Date now);
    void turnEnded(Date now);

    /// Runs an event, deals with a failing store, and sees to the next wake-up.
    template <class Event>
    void guarded(Date now, const Event& event) {
        try {
            event();
        } catch (const StoreError& error) {
            storeFailed(error, now);
        }
        schedule(now);
    }

    bool shutDown(Date now);
    RelayGauges gauges() const;
    const std::optional<std::string>& storeFailure() const { return failure; }
    const std::vector<LinkState*>& openLinks() const { return links; }

    const RelayLimits limits;
    RelayCounters counters;

private:
    using Counter = std::uint64_t RelayCounters::*;

    // Links.
    void firstPack(LinkState& link, ByteView frame, Date now);
    void close(LinkState& link, CloseCode code, std::string_view reason, Counter counter, Date now);
    void closeAll(CloseCode code, std::string_view reason, Counter counter, Date now);
    void drop(LinkState& link, Date now);
    void touch(LinkState& link);
    /// Whether the link is to be closed at the end of the turn. Until then packs that were read are still
    /// passed on, but commands are not obeyed and errors not answered.
    [[nodiscard]] bool isOverBounds(const LinkState& link) const;
    void ping(LinkState& link, Date now);
    void lookForSilence(Date now);
    [[nodiscard]] bool takeToken(Member& member, Date now);

    // Packs.
    void memberPack(LinkState& link, const PackView& pack, ByteView frame, Date now);
    void push(LinkState& link, ParcelHandle parcel, const Member* author);
    void collectIfNeeded(LinkState& link);
    void collect(LinkState& link);

    // What the relay itself says.
    void say(LinkState& link, ByteView plaintext);
    void answer(LinkState& link, std::string_view text);
    void refuse(LinkState& link, std::string_view text);
    void sendList(LinkState& link);
    void listChanged(Date now);
    void sendLists();

    // Commands and members.
    void command(LinkState& link, const PackView& pack, Date now);
    void obey(LinkState& link, const Command& command, Date now);
    void addMember(const StoredMember& stored);
    void removeMember(Member& member, Date now);
    void reloadMembers(Date now);

    // The store, and time.
    void storeFailed(const StoreError& error, Date now);
    void tryStore(Date now);
    void schedule(Date now);

    RelayStore& store;
    RelayHost& host;
    Members members;
    Mailroom mailroom;
    std::vector<LinkState*> links;                           // owned
    std::vector<LinkState*> touched;                         // links that `turnEnded` must look at
    std::unordered_map<std::string, std::size_t> addresses;  // links of each

    std::optional<std::string> failure;
    bool isStopping = false;
    std::optional<Date> listDue;   // when the list that has changed goes to everybody
    std::optional<Date> checkDue;  // when the links are looked through for silent ones
    std::optional<Date> retryDue;  // when a failing store is tried again
    std::optional<Date> expiryDue;
    std::optional<Date> armed;  // the wake-up that was asked for
};
