#pragma once

#include <cstdint>

/// Counts of events in the network code around the relay's logic since the start; every field only grows.
struct ShellCounters {
    std::uint64_t connections = 0;
    std::uint64_t acceptFailures = 0;      // no more descriptors, mostly
    std::uint64_t connectionsRefused = 0;  // too many from one address
    std::uint64_t requestsLate = 0;        // no whole request in time
    std::uint64_t requestsAnswered = 0;    // with anything but an upgrade
    std::uint64_t upgrades = 0;
    std::uint64_t tlsFailures = 0;
    std::uint64_t closedProtocol = 0;   // 1002
    std::uint64_t closedText = 0;       // 1003
    std::uint64_t closedFrameSize = 0;  // 1009
    std::uint64_t bytesReceived = 0;
    std::uint64_t bytesSent = 0;
    std::uint64_t writes = 0;
};
