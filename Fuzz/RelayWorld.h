#pragma once

#include "FuzzSupport/FuzzKeys.h"

#include "RelayCore/RelayCore.h"
#include "TestSupport/MemoryRelayStore.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// The keys of the people and the links of the relay fuzzer, and the shared key of each person with each link.
///
/// Computing a shared key takes longer than all the rest of a run, so it is done once a process.
class RelayKeys {
public:
    static constexpr std::size_t people = 6;  // the first few are members at the start
    static constexpr std::size_t links = 32;

    static const RelayKeys& all();

    const PublicKey& person(std::size_t index) const { return personKeys[index].publicKey; }
    const Nacl::KeyPair& link(std::size_t index) const { return linkKeys[index % links]; }
    const Nacl::SharedKey& shared(std::size_t link, std::size_t person) const {
        return *sharedKeys[link % links][person];
    }
    /// The person who has the key; nothing if none has.
    std::optional<std::size_t> personOf(ByteView key) const;

private:
    RelayKeys();

    std::array<Nacl::KeyPair, people> personKeys;
    std::array<Nacl::KeyPair, links> linkKeys;
    std::array<std::array<std::optional<Nacl::SharedKey>, people>, links> sharedKeys;
};

/// A relay, the people around it and their links, and all that must hold between them.
///
/// The fuzzer calls the operations. Each checks its outcome, and ends the process if a rule is broken.
/// `end` repairs everything, and checks that every pack that the relay has taken is where it belongs.
class RelayWorld : private RelayHost {
public:
    RelayWorld();
    ~RelayWorld() override;

    std::size_t linkCount() const { return links.size(); }

    void open(std::size_t address);
    /// @param link, person  by index. Here and below, nothing happens if there is no such link, or it is closed
    void authenticate(std::size_t link, std::size_t person);
    void sendPack(std::size_t link, std::size_t target, std::size_t bodySize);
    void sendAs(std::size_t link, std::size_t author, std::size_t target);
    void command(std::size_t link, std::string_view text);
    void raw(std::size_t link, ByteView frame);
    void pong(std::size_t link);
    void wrongPong(std::size_t link, std::uint64_t payload);
    void drop(std::size_t link);
    void changeMember(std::size_t person, int change);
    /// @param operation  which of the next is the first that fails, counted from 1
    void failStoreAt(std::size_t operation);
    void repairStore();
    void advance(Seconds interval);
    void endTurn();
    void restart();
    void end();

    std::string keyText(std::size_t person) const { return Nacl::hex(RelayKeys::all().person(person)); }

private:
    /// Whether a pack must, may or must not reach its target.
    enum class Fate { must, may, mustNot };
    struct Sent {
        Bytes frame;
        std::size_t author;
        std::size_t target;
        std::size_t fromLink;
        Fate fate = Fate::may;
        bool isProved = false;
        std::uint64_t provedAt = 0;  // the number of events before its proof
    };
    class Link;

    void wakeAt(Date when) override { wake = when; }
    Nacl::KeyPair linkKeys() override;
    Nonce nonce() override { return fuzzNonce(); }
    void report(std::string_view) override {}

    void start();
    Link* openLink(std::size_t index);
    Bytes sealed(std::size_t link, std::size_t person, ByteView plaintext);
    void frame(Link& link, ByteView bytes);
    void afterEvent();
    void checkTimes();
    void forgetPacksFor(std::size_t person, Fate fate);
    std::set<std::size_t> storedPeople() const;
    void noticeRemovals(const std::set<std::size_t>& before);

    Date now{800000000};
    std::optional<Date> wake;
    std::uint64_t events = 0;
    std::size_t nextKey = 0;
    bool didStoreFail = false;  // during the last event
    bool isUp = false;
    MemoryRelayStore store;
    std::unique_ptr<RelayCore> core;
    std::vector<std::unique_ptr<Link>> links;
    std::vector<Sent> sent;
    RelayCounters before;
};
