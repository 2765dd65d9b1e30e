#pragma once

#include "Base/Bytes.h"

#include <string>
#include <vector>

/// What the kernel says of this machine's way to the network, at one moment.
struct NetworkPath {
    /// A default route of IPv4 or IPv6 that can be used.
    struct Route {
        int family = 0;
        int interface = 0;  // index of the one to the first hop; 0 if there are several
        Bytes gateway;      // in network order; empty if there is none

        auto operator<=>(const Route&) const = default;
    };

    std::vector<Route> defaultRoutes;       // sorted, each once
    bool hasInterfaces = false;             // other than loopback
    std::vector<std::string> ownAddresses;  // as text, without a scope; sorted
    bool isKnown = false;                   // false: the kernel did not answer, and the rest means nothing

    bool operator==(const NetworkPath&) const = default;

    /// Asks the kernel over rtnetlink, in the network namespace of the calling thread.
    ///
    /// Blocks for as long as the kernel needs to list its routes, at most some seconds.
    static NetworkPath current();

    /// Whether the host of a URL is this machine: "localhost" and names below it, an address of 127/8,
    /// ::1, one of this machine's own, or its host name.
    bool isOnThisMachine(const std::string& url) const;

    /// Whether it is worth trying to connect: there is a default route, or no interface but loopback, or
    /// the endpoint is on this machine, or nothing is known.
    bool isSatisfied(const std::string& endpointUrl) const;
};
