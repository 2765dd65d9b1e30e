#include "Simulation/Pipe.h"

#include <algorithm>
#include <utility>

namespace {

constexpr double headerBytes = 60;  // of TCP, IP and the WebSocket, about

}  // namespace

Pipe::Pipe(MainLoop& loop, Seconds latency, std::function<void(WireItem)> arrived)
    : loop(loop), latency(latency), arrived(std::move(arrived)) {}

Pipe::~Pipe() {
    if (timer) loop.cancelTimer(*timer);
}

void Pipe::push(WireItem item) {
    if (_isCut) return;
    busyUntil = std::max(busyUntil, loop.now());
    if (rate) busyUntil = busyUntil + (static_cast<double>(item.bytes.size()) + headerBytes) / *rate;
    travelling.push_back({busyUntil + latency, std::move(item)});
    arm();
}

void Pipe::stall(Date until) { stalledUntil = std::max(stalledUntil, until); }

void Pipe::slowDown(double bytesPerSecond) { rate = bytesPerSecond; }

void Pipe::heal() {
    rate.reset();
    stalledUntil = busyUntil = loop.now();
    for (Travelling& each : travelling) each.due = std::min(each.due, loop.now() + latency);
    if (timer) loop.cancelTimer(*std::exchange(timer, {}));
    arm();
}

void Pipe::cut() {
    _isCut = true;
    travelling.clear();
}

void Pipe::arm() {
    if (timer || travelling.empty()) return;
    const Date due = std::max(travelling.front().due, stalledUntil);
    timer = loop.startTimer(due - loop.now(), [this] {
        timer.reset();
        deliver();
    });
}

void Pipe::deliver() {
    while (!travelling.empty() && std::max(travelling.front().due, stalledUntil) <= loop.now()) {
        WireItem item = std::move(travelling.front().item);
        travelling.pop_front();
        arrived(std::move(item));
    }
    arm();
}
