#pragma once

#include "RelayCore/RelayCore.h"
#include "TestSupport/MemoryRelayStore.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Somebody with a key pair.
struct Somebody {
    explicit Somebody(std::string name) : name(std::move(name)) {}

    std::string name;
    Nacl::KeyPair keys = Nacl::keyPair();

    const PublicKey& key() const { return keys.publicKey; }
    std::string hex() const { return Nacl::hex(keys.publicKey); }
};

/// One link and the client at its other end, which opens the packs that arrive and answers pings if told to.
class TestLink : public RelayLink {
public:
    explicit TestLink(const Somebody& owner) : owner(owner) {}

    void send(ByteView frame) override {
        if (!serverKey) {
            serverKey = Greeting::decoded(frame);
            return;
        }
        const auto pack = EncryptedPack::parse(frame);
        const Pack open = pack->decrypted(owner.keys.secretKey);
        if (open.authorKey != *serverKey) {
            texts.emplace_back(textOf(open.plaintext));
            log.push_back("text " + texts.back());
            return;
        }
        const auto message = ServerMessage::decoded(open.plaintext);
        if (message->kind == ServerMessage::list) {
            lists.push_back(*ServerMessage::decodedList(message->body));
            log.push_back("list");
        } else {
            answers.push_back(message->kind + " " + PackPlaintext::decoded(message->body)->text.value_or(""));
            log.push_back(answers.back());
        }
    }
    void ping(std::uint64_t payload) override {
        pings.push_back(payload);
        log.push_back("ping");
    }
    void close(CloseCode code, std::string_view reason) override {
        closeCode = code;
        closeReason = reason;
    }

    bool knows(const Somebody& person) const {
        return !lists.empty() && std::any_of(lists.back().begin(), lists.back().end(),
                                             [&](const MetaPerson& each) { return each.publicKey == person.hex(); });
    }
    bool seesOnline(const Somebody& person) const {
        return !lists.empty() && std::any_of(lists.back().begin(), lists.back().end(), [&](const MetaPerson& each) {
            return each.publicKey == person.hex() && each.isOnline;
        });
    }

    const Somebody& owner;
    std::optional<PublicKey> serverKey;
    std::vector<std::string> texts;
    std::vector<std::vector<MetaPerson>> lists;
    std::vector<std::string> answers;
    std::vector<std::string> log;
    std::vector<std::uint64_t> pings;  // not yet answered
    std::optional<CloseCode> closeCode;
    std::string closeReason;
    bool isProving = true;  // answers pings at the end of each turn
};

/// A relay in virtual time, with links that tests hold.
class RelayWorld : private RelayHost {
public:
    explicit RelayWorld(RelayLimits limits = {}) : limits(limits) {}
    ~RelayWorld() override { relay.reset(); }

    void admit(const Somebody& person, bool isAdmin = false) { store.people.push_back({person.key(), isAdmin}); }

    RelayCore& core() {
        if (!relay) {
            RelayHost& host = *this;
            relay = std::make_unique<RelayCore>(limits, store, host);
            relay->start(now);
        }
        return *relay;
    }

    /// Simulates a killed process: everything that is not in the store is lost.
    void kill() {
        relay.reset();
        links.clear();
        wakeUp.reset();
    }

    TestLink& open(const Somebody& person, const std::string& address = "there") {
        links.push_back(std::make_unique<TestLink>(person));
        TestLink& link = *links.back();
        core().linkOpened(link, address, now);
        return link;
    }
    /// Opens a link, and says "list" on it.
    TestLink& join(const Somebody& person, bool isProving = true) {
        TestLink& link = open(person);
        link.isProving = isProving;
        if (link.serverKey) say(link, "list");
        turn();
        return link;
    }
    /// The relay hears that the link has ended.
    void die(TestLink& link) {
        core().linkClosed(link, now);
        link.closeCode = CloseCode::goingAway;
        turn();
    }

    void frame(TestLink& link, ByteView bytes) { core().frameReceived(link, bytes, now); }
    void say(TestLink& link, const std::string& command) { frame(link, packOf(link.owner, *link.serverKey, command)); }
    void write(TestLink& link, const Somebody& target, const std::string& text) {
        frame(link, packOf(link.owner, target.key(), text));
    }
    static Bytes packOf(const Somebody& author, const PublicKey& target, const std::string& text) {
        const auto bytes = bytesOf(text);
        return Pack{author.key(), target, std::nullopt, Bytes(bytes.begin(), bytes.end())}
            .encrypted(author.keys.secretKey)
            .bytes();
    }

    /// Ends turns and lets the links answer until nothing more happens.
    void turn() {
        for (bool isBusy = true; isBusy;) {
            core().turnEnded(now);
            isBusy = false;
            for (std::size_t index = 0; index < links.size(); ++index) {
                TestLink& link = *links[index];
                if (!link.isProving || link.pings.empty()) continue;
                for (const std::uint64_t payload : std::exchange(link.pings, {}))
                    core().pongReceived(link, payload, now);
                isBusy = true;
            }
        }
    }
    /// Lets time pass.
    void advance(Seconds time) {
        const Date end = now + time;
        while (wakeUp && *wakeUp <= end) {
            now = std::max(now, *wakeUp);
            wakeUp.reset();
            core().wake(now);
            turn();
        }
        now = end;
    }

    RelayLimits limits;
    MemoryRelayStore store;
    Date now{1000};
    std::vector<std::string> reports;
    std::vector<std::unique_ptr<TestLink>> links;

private:
    void wakeAt(Date when) override { wakeUp = when; }
    void report(std::string_view line) override { reports.emplace_back(line); }

    std::optional<Date> wakeUp;
    std::unique_ptr<RelayCore> relay;
};
