#pragma once

#include "Simulation/Journal.h"
#include "Simulation/SimulatedPerson.h"
#include "Simulation/SimulatedStore.h"

#include "Base/Bytes.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

class Wire;

/// Something that somebody says; no two are the same.
struct SaidText {
    int number = 0;
    std::string content;
    bool isForRoom = false;
};

/// One sealed pack, and all that has become of it.
struct Copy {
    struct Read {
        Date at;
        int incarnation = 0;            // of the relay
        std::uint64_t place = 0;        // among all that was ever read
        std::optional<int> membership;  // of the reader at that moment
        const Wire* wire = nullptr;
    };
    struct Handed {
        const Wire* wire = nullptr;
        bool isAuthorMember = false;  // at that moment
    };
    struct Delivered {
        const Wire* wire = nullptr;
    };
    struct Proof {
        Date at;
        int incarnation = 0;
    };

    std::uint64_t number = 0;        // as they were sent
    const SaidText* text = nullptr;  // null: it only tells a name
    const SimulatedPerson* author = nullptr;
    const SimulatedPerson* target = nullptr;
    std::optional<Read> read;          // by the relay
    std::vector<Handed> handed;        // by the relay to the network
    std::vector<Delivered> delivered;  // by the network to a client
    std::optional<Proof> proof;        // the first that reached the relay
};

/// The life of every pack, as the network sees it, and what the relay owes for it.
///
/// The network tells of each step that a pack takes; steps that must not happen are failures at once.
/// What must have happened is checked when all has come to rest.
class Ledger {
public:
    /// A relay that is killed may lose what it read less than this long before, and not more.
    static constexpr Seconds excusedLoss = 0.1;

    Ledger(const MainLoop& loop, Journal& journal, const SimulatedStore& store,
           const std::deque<SimulatedPerson>& people)
        : loop(loop), journal(journal), store(store), people(people) {}

    // ---- the steps; each ignores frames that are no pack between people

    /// @param text  what is being said, or null
    void sent(const SimulatedPerson& author, ByteView frame, const SaidText* text);
    void read(const Wire& wire, ByteView frame, int incarnation);
    void handed(const Wire& wire, ByteView frame);
    /// @return the pack that this is, if any
    const Copy* delivered(Wire& wire, ByteView frame);
    /// The relay has read a pong: all that had arrived before it is proved.
    void proved(Wire& wire, std::size_t heard, int incarnation);
    void relayKilled(int incarnation);

    /// How many packs the relay has read so far.
    std::uint64_t readCount() const { return places; }
    const std::vector<Copy*>& copiesOf(const SaidText& text) const;
    /// What came of all packs: sent; never read; come to one machine more than once; lost with a killed relay.
    void count(std::size_t& sent, std::size_t& lost, std::size_t& repeated, std::size_t& excused) const;

    // ---- when all has come to rest

    /// Nothing is missing or left over: what was read for somebody who is still a member is proved, or
    /// waits in the store exactly once for somebody who is away; nothing else waits.
    /// @param isAway  whether no machine of that person has a link
    void checkArrivals(const std::function<bool(const SimulatedPerson&)>& isAway);
    /// What was read since a link that still stands was authenticated has been handed to it.
    void checkLink(const Wire& wire, const SimulatedPerson& owner);

    std::string described(const Copy& copy) const;

private:
    struct NonceHash {
        std::size_t operator()(const Nonce& nonce) const;
    };
    Copy* find(ByteView frame);
    const SimulatedPerson* person(ByteView key) const;
    bool mayBeForgotten(const Copy& copy) const;
    bool mayComeAgain(const Copy& copy) const;

    const MainLoop& loop;
    Journal& journal;
    const SimulatedStore& store;
    const std::deque<SimulatedPerson>& people;
    std::unordered_map<Nonce, Copy, NonceHash> copies;
    std::vector<Copy*> inOrder;
    std::unordered_map<const SaidText*, std::vector<Copy*>> byText;
    std::unordered_map<int, Date> killed;  // relays that were, by incarnation
    std::uint64_t places = 0;
};
