#include "Simulation/SimulatedConnection.h"

#include "Simulation/Machine.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr Seconds longestUpgrade = 15;
constexpr Seconds longestRetry = 30;
constexpr Seconds silenceUntilPing = 25;
constexpr Seconds silenceAfterPing = 20;
constexpr Seconds silenceCheck = 5;

}  // namespace

std::unique_ptr<TransportConnection> SimulatedTransport::connection(const TransportParameters& parameters) {
    return std::make_unique<SimulatedConnection>(network, machine, parameters.url);
}

SimulatedConnection::SimulatedConnection(Network& network, Machine& machine, std::string url)
    : network(network), machine(machine), url(std::move(url)) {}

SimulatedConnection::~SimulatedConnection() { leaveWire(); }

/// Runs the action after the delay, unless this connection is destroyed before.
template <class Action>
void SimulatedConnection::later(Seconds delay, Action action) {
    const auto run = [watch = std::weak_ptr(life), action = std::move(action)] {
        if (!watch.expired()) action();
    };
    if (delay > 0)
        network.loop.startTimer(delay, run);
    else
        network.loop.post(run);
}

void SimulatedConnection::start(Handlers newHandlers) {
    handlers = std::make_shared<const Handlers>(std::move(newHandlers));
    later(0, [this] {
        if (_state == TransportState::setup) dial();
    });
}

void SimulatedConnection::changeState(TransportState state, const std::optional<TransportError>& error) {
    _state = state;
    const auto told = handlers;  // the owner may destroy this in the middle
    told->stateChanged(state, error);
}

void SimulatedConnection::dial() {
    ++dialled;
    const std::weak_ptr watch(life);
    changeState(TransportState::preparing);
    if (watch.expired() || _state != TransportState::preparing) return;
    const bool isServer = url.starts_with(Network::server);
    if (!isServer || !machine.isPathUp || network.random.chance(network.refusals)) {
        later(0.05, [this] {
            if (_state == TransportState::preparing) wait("refused");
        });
        return;
    }
    wire = &network.open(machine, *this);
    later(longestUpgrade, [this, number = dialled] {
        if (_state == TransportState::preparing && number == dialled) wait("the upgrade takes too long");
    });
}

void SimulatedConnection::wait(const char* reason) {
    leaveWire();
    const Seconds delay = std::min(longestRetry, std::pow(2.0, dialled - 1));
    later(delay, [this] {
        if (_state == TransportState::waiting) dial();
    });
    changeState(TransportState::waiting, TransportError{reason});
}

void SimulatedConnection::becomeReady() {
    heardAt = network.loop.now();
    watchSilence();
    changeState(TransportState::ready);
}

void SimulatedConnection::watchSilence() {
    later(silenceCheck, [this] {
        if (_state != TransportState::ready || hasEnded || !wire) return;
        const Date now = network.loop.now();
        if (pingedAt && heardAt >= *pingedAt) pingedAt.reset();
        if (pingedAt && now - *pingedAt >= silenceAfterPing) {
            leaveWire();
            return changeState(TransportState::failed, TransportError{"nothing heard"});
        }
        if (!pingedAt && now - heardAt >= silenceUntilPing) {
            pingedAt = now;
            wire->up.push({.kind = WireItem::Kind::ping});
        }
        watchSilence();
    });
}

void SimulatedConnection::send(TransportMessage message,
                               std::function<void(const std::optional<TransportError>&)> completion) {
    if (wire && !hasEnded) {
        if (message.opcode == Opcode::close) {
            const auto code = message.closeCode ? std::optional(static_cast<int>(*message.closeCode)) : std::nullopt;
            wire->up.push({.kind = WireItem::Kind::close, .code = code});
        } else {
            network.ledger.sent(machine.person, message.content, machine.textBeingSaid);
            wire->up.push({.kind = WireItem::Kind::frame, .bytes = std::move(message.content)});
        }
    }
    if (!completion) return;
    later(network.slowestSend > 0 ? network.random.between(0, network.slowestSend) : 0,
          [completion = std::move(completion)] { completion({}); });
}

void SimulatedConnection::cancel() {
    if (_state == TransportState::failed || _state == TransportState::cancelled) return;
    leaveWire();
    _state = TransportState::cancelled;
    if (!handlers) return;
    later(0, [this] {
        const auto told = handlers;
        told->stateChanged(TransportState::cancelled, {});
    });
}

void SimulatedConnection::leaveWire() {
    if (!wire) return;
    Wire& left = *std::exchange(wire, nullptr);
    left.client = nullptr;
    if (left.up.isCut()) return;
    if (machine.death == Machine::Death::silent) {
        left.lose({}, {});
    } else if (network.random.chance(0.3)) {
        left.lose({}, left.latency);
    } else {
        left.up.push({.kind = WireItem::Kind::end});
    }
}

void SimulatedConnection::arrived(WireItem item) {
    const auto told = handlers;
    heardAt = network.loop.now();
    switch (item.kind) {
        case WireItem::Kind::upgrade: return becomeReady();
        case WireItem::Kind::frame:
            machine.arrived(*wire, item.bytes, [&] {
                told->received({.opcode = Opcode::binary, .content = item.bytes, .closeCode = {}});
            });
            return;
        case WireItem::Kind::ping:
            wire->up.push({.kind = WireItem::Kind::pong, .payload = item.payload, .heard = wire->heard.size()});
            return;
        case WireItem::Kind::pong: return;
        case WireItem::Kind::close:
            if (_state != TransportState::ready) return;
            if (item.code == static_cast<int>(CloseCode::policyViolation)) machine.wasThrownOut = true;
            told->received({.opcode = Opcode::close,
                            .content = {},
                            .closeCode = item.code ? std::optional(static_cast<CloseCode>(*item.code)) : std::nullopt});
            return;
        case WireItem::Kind::end:
            if (_state != TransportState::ready) return wait("closed before it was open");
            hasEnded = true;
            wire->client = nullptr;
            wire = nullptr;
            told->receiveFailed(TransportError{"the connection has ended"});
            return;
    }
}
