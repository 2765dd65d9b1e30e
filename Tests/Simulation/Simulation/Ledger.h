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

/// A text that a user sends; no two texts are the same.
struct SaidText {
    int number = 0;
    std::string content;
    bool isForRoom = false;
};

/// One sealed pack, and all that has happened to it.
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

    std::uint64_t number = 0;        // in the order of their sending
    const SaidText* text = nullptr;  // null: the pack only tells a name
    const SimulatedPerson* author = nullptr;
    const SimulatedPerson* target = nullptr;
    std::optional<Read> read;          // by the relay
    std::vector<Handed> handed;        // by the relay to the network
    std::vector<Delivered> delivered;  // by the network to a client
    std::optional<Proof> proof;        // the first that reached the relay; replaced if a killed relay forgot it
};

/// The life of every pack, as the network sees it, and what the relay owes for it.
///
/// The simulated network reports each step that a pack takes. A step that must not happen is a failure
/// at once; what must have happened is checked when all has come to rest.
class Ledger {
public:
    /// A relay that is killed may lose what it read less than this long before, and not more.
    static constexpr Seconds excusedLoss = 0.1;

    Ledger(const MainLoop& loop, Journal& journal, const SimulatedStore& store,
           const std::deque<SimulatedPerson>& people)
        : loop(loop), journal(journal), store(store), people(people) {}

    // ---- the steps; each ignores a frame that is not a pack from one person to another

    /// @param text  what is being said, or null
    void sent(const SimulatedPerson& author, ByteView frame, const SaidText* text);
    void read(const Wire& wire, ByteView frame, int incarnation);
    void handed(const Wire& wire, ByteView frame);
    /// @return the pack in the frame, if it is one
    const Copy* delivered(Wire& wire, ByteView frame);
    /// The relay has read a pong, which proves all packs that had arrived before it was sent.
    /// @param heard  how many of the wire's packs these are
    void proved(Wire& wire, std::size_t heard, int incarnation);
    void relayKilled(int incarnation);

    /// How many packs the relay has read so far.
    std::uint64_t readCount() const { return places; }
    const std::vector<Copy*>& copiesOf(const SaidText& text) const;
    /// Counts the packs: all; those that the relay never read; those that one machine got more than once; those
    /// that were lost with a killed relay.
    void count(std::size_t& sent, std::size_t& lost, std::size_t& repeated, std::size_t& excused) const;

    // ---- when all has come to rest

    /// Fails unless each pack that the relay has read for a reader who is still a member is either proved, or
    /// waits in the store exactly once while the reader is away; and unless nothing else waits.
    /// @param isAway  whether no machine of that person has a link
    void checkArrivals(const std::function<bool(const SimulatedPerson&)>& isAway);
    /// Fails unless a link that still stands has delivered each pack to its owner that the relay has read since
    /// it authenticated the link.
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
    std::unordered_map<int, Date> killed;  // when each killed relay died, by incarnation
    std::uint64_t places = 0;
};
