#pragma once

#include "Simulation/Network.h"
#include "Simulation/Wire.h"

#include "StateKit/Transport.h"

#include <memory>
#include <optional>
#include <string>

/// One connection as a client holds it. It behaves as the desktop's transport does: it tries again by
/// itself until it has been ready once, answers pings, and gives up a link on which nothing arrives.
class SimulatedConnection : public TransportConnection {
public:
    SimulatedConnection(Network& network, Machine& machine, std::string url);
    ~SimulatedConnection() override;

    void start(Handlers handlers) override;
    TransportState state() const override { return _state; }
    void send(TransportMessage message, std::function<void(const std::optional<TransportError>&)> completion) override;
    void cancel() override;

    /// Something has come down the wire.
    void arrived(WireItem item);

private:
    template <class Action>
    void later(Seconds delay, Action action);
    void changeState(TransportState state, const std::optional<TransportError>& error = {});
    void dial();
    void wait(const char* reason);
    void becomeReady();
    void watchSilence();
    void leaveWire();

    Network& network;
    Machine& machine;
    const std::string url;
    TransportState _state = TransportState::setup;
    std::shared_ptr<const Handlers> handlers;
    std::shared_ptr<const bool> life = std::make_shared<const bool>(true);  // timers hold it weakly
    Wire* wire = nullptr;
    int dialled = 0;
    bool hasEnded = false;  // has reported the end of a link that was ready
    Date heardAt;
    std::optional<Date> pingedAt;
};

/// The transport that a machine's `Kit` dials with.
class SimulatedTransport : public Transport {
public:
    SimulatedTransport(Network& network, Machine& machine) : network(network), machine(machine) {}
    std::unique_ptr<TransportConnection> connection(const TransportParameters& parameters) override;

private:
    Network& network;
    Machine& machine;
};
