#include "Simulation/SimulatedRelay.h"

#include "RelayCore/RelayCore.h"

#include <algorithm>
#include <string>
#include <utility>

/// The part of the relay that is lost with its process.
struct SimulatedRelay::Process : RelayHost {
    explicit Process(SimulatedRelay& relay) : relay(relay), core(relay.nature.limits, relay.store, *this) {}

    void wakeAt(Date when) override { relay.wakeAt(when); }
    Nacl::KeyPair linkKeys() override {
        Nacl::KeyPair keys;
        relay.random.fill(keys.secretKey.writable());
        keys.publicKey = Nacl::publicKey(keys.secretKey);
        return keys;
    }
    void report(std::string_view line) override {
        relay.journal.line([&] { return "relay says: " + std::string(line); });
    }

    SimulatedRelay& relay;
    RelayCore core;
};

class SimulatedRelay::LinkEnd : public RelayLink {
public:
    LinkEnd(SimulatedRelay& relay, Wire& wire) : relay(relay), wire(wire) {}
    void send(ByteView frame) override { relay.sent(wire, frame); }
    void ping(std::uint64_t payload) override {
        relay.gather(wire, {.kind = WireItem::Kind::ping, .payload = payload});
    }
    void close(CloseCode code, std::string_view) override { relay.closed(wire, static_cast<int>(code)); }

private:
    SimulatedRelay& relay;
    Wire& wire;
};

SimulatedRelay::SimulatedRelay(MainLoop& loop, Random& random, Journal& journal, Ledger& ledger, SimulatedStore& store,
                               const std::deque<std::unique_ptr<Wire>>& wires, const Nature& nature)
    : loop(loop), random(random), journal(journal), ledger(ledger), store(store), wires(wires), nature(nature) {}

SimulatedRelay::~SimulatedRelay() { forgetTimers(); }

void SimulatedRelay::start() {
    ++incarnation;
    journal.line([&] { return "relay " + std::to_string(incarnation) + " starts"; });
    process = std::make_unique<Process>(*this);
    process->core.start(loop.now());
}

void SimulatedRelay::shutDown() {
    isStopping = true;
    const bool isDone = process->core.shutDown(loop.now());
    isStopping = false;
    if (!isDone) return journal.fail("the relay could not be shut down");
    write();
    stopped("stops", false, true);
}

void SimulatedRelay::kill(bool isMachineGone) {
    ledger.relayKilled(incarnation);
    stopped(isMachineGone ? "crashes with its machine" : "is killed", isMachineGone, false);
}

void SimulatedRelay::stopped(std::string_view how, bool isMachineGone, bool isTold) {
    journal.line([&] { return "relay " + std::to_string(incarnation) + " " + std::string(how); });
    checkCounters();
    forgetTimers();
    process.reset();
    for (Wire* wire : std::exchange(touched, {})) wire->gathered.clear();
    for (const auto& wire : wires) {
        if (!std::exchange(wire->isOpen, false)) continue;
        if (isTold) journal.fail("the relay stopped without closing link " + std::to_string(wire->number));
        if (isMachineGone)
            wire->lose({}, {});
        else if (random.chance(0.5))
            wire->lose(wire->latency, {});
        else
            wire->down.push({.kind = WireItem::Kind::end});
    }
}

bool SimulatedRelay::isAiling() const { return process && process->core.storeFailure(); }

RelayGauges SimulatedRelay::gauges() const { return process->core.gauges(); }

void SimulatedRelay::checkCounters() {
    const RelayCounters& counters = process->core.counters();
    if (counters.closedBadFirstPack > 0) journal.fail("the relay refused a first pack that was good");
    if (counters.refusedGarbage + counters.refusedAuthor + counters.refusedTooLarge + counters.refusedFullMailbox > 0)
        journal.fail("the relay refused a pack that was good");
}

void SimulatedRelay::membersChanged() {
    if (!process) return;
    process->core.membersChanged(loop.now());
    turn();
}

// ---- links

void SimulatedRelay::arrived(Wire& wire, WireItem item) {
    if (item.kind == WireItem::Kind::upgrade) {
        if (!process) return wire.lose(wire.latency, {});
        wire.isOpen = true;
        wire.incarnation = incarnation;
        journal.line([&] { return "relay opens link " + std::to_string(wire.number) + " of " + wire.machine; });
        gather(wire, {.kind = WireItem::Kind::upgrade});
        wire.relayEnd = std::make_shared<LinkEnd>(*this, wire);
        process->core.linkOpened(*wire.relayEnd, "address of " + wire.machine, loop.now());
        return turn();
    }
    if (!wire.isOpen) return;
    switch (item.kind) {
        case WireItem::Kind::upgrade: return;
        case WireItem::Kind::frame:
            ledger.read(wire, item.bytes, incarnation);
            process->core.frameReceived(*wire.relayEnd, item.bytes, loop.now());
            break;
        case WireItem::Kind::ping: gather(wire, {.kind = WireItem::Kind::pong, .payload = item.payload}); break;
        case WireItem::Kind::pong:
            ledger.proved(wire, item.heard, incarnation);
            process->core.pongReceived(*wire.relayEnd, item.payload, loop.now());
            break;
        case WireItem::Kind::close:
            gather(wire, {.kind = WireItem::Kind::close, .code = item.code});
            gather(wire, {.kind = WireItem::Kind::end});
            [[fallthrough]];
        case WireItem::Kind::end: return ended(wire);
    }
    turn();
}

void SimulatedRelay::ended(Wire& wire) {
    if (!std::exchange(wire.isOpen, false)) return;
    journal.line([&] { return "relay learns that link " + std::to_string(wire.number) + " has ended"; });
    process->core.linkClosed(*wire.relayEnd, loop.now());
    turn();
}

void SimulatedRelay::sent(Wire& wire, ByteView frame) {
    if (!wire.isOpen) return journal.fail("the relay writes to a link that has ended");
    // The first frame is the greeting. The second is the list, which the relay sends only once it has let a member in.
    if (++wire.framesSent == 2) wire.authenticatedAt = ledger.readCount();
    ledger.handed(wire, frame);
    gather(wire, {.kind = WireItem::Kind::frame, .bytes = Bytes(frame.begin(), frame.end())});
}

void SimulatedRelay::gather(Wire& wire, WireItem item) {
    if (wire.gathered.empty()) touched.push_back(&wire);
    wire.gathered.push_back(std::move(item));
}

void SimulatedRelay::closed(Wire& wire, int code) {
    journal.line([&] { return "relay closes link " + std::to_string(wire.number) + " with " + std::to_string(code); });
    if (code == static_cast<int>(CloseCode::policyViolation) && store.member(wire.person.publicKey))
        journal.fail(wire.machine + " was thrown out though it is a member's");
    const bool isGoodbye = code == static_cast<int>(CloseCode::goingAway) && !isStopping;
    if (isGoodbye && !store.member(wire.person.publicKey))
        journal.fail(wire.machine + " is no member's any more, and was not told so");
    wire.isOpen = false;
    gather(wire, {.kind = WireItem::Kind::close, .code = code});
    gather(wire, {.kind = WireItem::Kind::end});
}

// ---- turns and time

void SimulatedRelay::turn() {
    if (turnTimer) return;
    turnTimer = loop.startTimer(random.between(0, nature.turn), [this] {
        turnTimer.reset();
        endTurn();
    });
}

void SimulatedRelay::endTurn() {
    process->core.turnEnded(loop.now());
    write();
}

void SimulatedRelay::write() {
    for (Wire* wire : std::exchange(touched, {}))
        for (WireItem& item : std::exchange(wire->gathered, {})) wire->down.push(std::move(item));
}

void SimulatedRelay::wakeAt(Date when) {
    if (wakeTimer) loop.cancelTimer(*wakeTimer);
    wakeTimer = loop.startTimer(when - loop.now(), [this] {
        wakeTimer.reset();
        process->core.wake(loop.now());
        turn();
    });
}

void SimulatedRelay::forgetTimers() {
    if (wakeTimer) loop.cancelTimer(*std::exchange(wakeTimer, {}));
    if (turnTimer) loop.cancelTimer(*std::exchange(turnTimer, {}));
}
