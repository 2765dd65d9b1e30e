#pragma once

#include "RelayCore/RelayLimits.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// How `vimble-relay serve` is to run.
struct ServeOptions {
    std::string listen = "127.0.0.1:8080";  // HOST:PORT, an IPv6 address in brackets; port 0 picks one
    std::vector<std::string> orListen;      // tried in turn while another program has the port of the one before
    std::filesystem::path database;
    std::optional<std::filesystem::path> untilReleased;   // serve while somebody has a lock on this file
    std::optional<std::filesystem::path> tlsCertificate;  // both or none
    std::optional<std::filesystem::path> tlsKey;
    bool isBehindProxy = false;      // addresses are taken from X-Forwarded-For
    bool hasOpenMetrics = false;     // /metrics for everybody, not only for this machine
    std::size_t headerBytes = 8192;  // a longer HTTP request is answered with 431
    Seconds requestTime = 10;        // from the connection to the end of its request (TLS included)
    RelayLimits limits;
};
