#include "RelayCore/RelayCore.h"

#include "RelayCore/Engine.h"

RelayCore::RelayCore(const RelayLimits& limits, RelayStore& store, RelayHost& host)
    : engine(std::make_unique<Engine>(limits, store, host)) {}

RelayCore::~RelayCore() {
    for (LinkState* state : engine->openLinks()) state->link->state = nullptr;
}

void RelayCore::start(Date now) { engine->start(now); }

void RelayCore::linkOpened(RelayLink& link, std::string_view address, Date now) {
    engine->guarded(now, [&] { engine->linkOpened(link, link.state, address, now); });
}

void RelayCore::frameReceived(RelayLink& link, ByteView frame, Date now) {
    if (link.state) engine->guarded(now, [&] { engine->frameReceived(*link.state, frame, now); });
}

void RelayCore::pongReceived(RelayLink& link, std::uint64_t payload, Date now) {
    if (link.state) engine->guarded(now, [&] { engine->pongReceived(*link.state, payload, now); });
}

void RelayCore::linkClosed(RelayLink& link, Date now) {
    if (link.state) engine->guarded(now, [&] { engine->linkClosed(*link.state, now); });
}

void RelayCore::membersChanged(Date now) {
    engine->guarded(now, [&] { engine->membersChanged(now); });
}

void RelayCore::wake(Date now) {
    engine->guarded(now, [&] { engine->wake(now); });
}

void RelayCore::turnEnded(Date now) {
    engine->guarded(now, [&] { engine->turnEnded(now); });
}

bool RelayCore::shutDown(Date now) { return engine->shutDown(now); }

const RelayLimits& RelayCore::limits() const { return engine->limits; }
const RelayCounters& RelayCore::counters() const { return engine->counters; }
RelayGauges RelayCore::gauges() const { return engine->gauges(); }
const std::optional<std::string>& RelayCore::storeFailure() const { return engine->storeFailure(); }
