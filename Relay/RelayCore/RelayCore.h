#pragma once

#include "RelayCore/RelayCounters.h"
#include "RelayCore/RelayLimits.h"
#include "RelayCore/RelayLink.h"
#include "RelayCore/RelayStore.h"

#include "Base/Bytes.h"
#include "StateKit/Date.h"
#include "TweetNacl/Nacl.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// What the relay's logic needs besides links and a store: a wake-up, randomness, and somebody to tell.
class RelayHost {
public:
    RelayHost() = default;
    RelayHost(const RelayHost&) = delete;
    RelayHost& operator=(const RelayHost&) = delete;
    virtual ~RelayHost() = default;

    /// Asks for `RelayCore::wake` at this time or soon after. There is one wake-up: a later call replaces
    /// the one before. May be called in the midst of any event; must not call back before returning.
    virtual void wakeAt(Date when) = 0;

    /// A new key pair for one link.
    virtual Nacl::KeyPair linkKeys() { return Nacl::keyPair(); }
    virtual Nonce nonce() { return Nacl::randomNonce(); }

    /// One line for whoever runs the relay: the database fails, or works again.
    virtual void report(std::string_view line) = 0;
};

/// The relay's logic: members, presence, routing, mail. Does no input or output of its own.
///
/// Events go in through the operations below, each with the time at which it happens; what is to be done
/// comes out through `RelayLink`, `RelayStore` and `RelayHost`, within the call. Time never goes back
/// from one event to the next, and since it is compared with the times of kept mail, it goes on from
/// where an earlier relay with the same store has left it. It must not follow a clock that jumps: mail is
/// deleted for its age.
///
/// A turn of the loop: any number of events, then `turnEnded`, then the links write what they gathered.
/// Pings go out in `turnEnded` only, one behind all that the turn sent to a link: without it nothing is
/// ever proved to have arrived.
///
/// The life of a link: `linkOpened`; then `frameReceived` and `pongReceived` in any number; then either
/// `linkClosed`, or the logic's own `RelayLink::close`, whichever comes first. Afterwards every event of
/// that link is ignored, and it may be destroyed. A link must outlive its life here: destroying one
/// that is still open ends the process.
///
/// How packs are kept. A pack for a member with open links is handed to each of them (behind the list
/// and older packs, where these are still on their way) and held in memory until one of them has answered
/// a ping that went behind it. What is not proved some 20 to 60 milliseconds after its arrival is written to
/// the store as well, as is every pack for a member who is away; so a relay that is killed loses at most
/// what arrived in the last tenth of a second. When the last link that held a pack is gone, it is mail.
/// A new link is handed all that is not proved, in order and before anything newer: the mail, and what older
/// links of the member hold, for they may be dead without our knowing. It goes in pages, by way of the store,
/// one page on its way at a time. The older links still hold what they were handed, so that a late proof
/// counts. So every link has had, or is about to be handed, all that is not proved, and none is ever handed
/// an older pack behind a newer one.
/// A pack to oneself goes to the other links that are open at that moment, and is never mail.
///
/// When the store fails: all links are closed with 1011, and new ones too, until it works again; it is
/// tried every second. Nothing that was held is forgotten meanwhile.
///
/// One thread. Not copyable. Destroying it forgets the links that are open without closing them, and
/// what `shutDown` would have put into the mail.
class RelayCore {
public:
    /// Borrows store and host, which must outlive it. `start` comes next.
    RelayCore(const RelayLimits& limits, RelayStore& store, RelayHost& host);
    RelayCore(const RelayCore&) = delete;
    RelayCore& operator=(const RelayCore&) = delete;
    ~RelayCore();

    /// Reads the members and what waits for them. Call once, before any other event.
    /// @throws StoreError  the relay can't serve; nothing has changed
    void start(Date now);

    /// A link has been upgraded to WebSocket. Greets it, or closes it at once (a limit, a failing store).
    /// @param address  where it comes from; any text that is the same for the same place
    void linkOpened(RelayLink& link, std::string_view address, Date now);

    /// A whole binary message has arrived. `frame` is borrowed for the call, and of any size,
    /// though the owner of the connection should refuse more than `RelayLimits::frameBytes`.
    void frameReceived(RelayLink& link, ByteView frame, Date now);

    /// A pong of 8 bytes has arrived. One that answers no ping is ignored.
    void pongReceived(RelayLink& link, std::uint64_t payload, Date now);

    /// The connection has ended, for whatever reason, or a close frame has arrived.
    void linkClosed(RelayLink& link, Date now);

    /// Somebody else (the command line) has changed the members in the store.
    void membersChanged(Date now);

    /// The time asked for by `RelayHost::wakeAt` has come. Too early, or once too often, does no harm.
    void wake(Date now);

    /// All events of this turn of the loop have been told.
    void turnEnded(Date now);

    /// Puts what is not proved into the mail, and closes every link with 1001. No event may follow but
    /// those of links, which are ignored, and another `shutDown`.
    /// @return false if the store failed: then it may be called again
    bool shutDown(Date now);

    const RelayLimits& limits() const;
    const RelayCounters& counters() const;
    RelayGauges gauges() const;
    /// Why the store fails at present; nothing while it works.
    const std::optional<std::string>& storeFailure() const;

private:
    class Engine;
    std::unique_ptr<Engine> engine;
};
