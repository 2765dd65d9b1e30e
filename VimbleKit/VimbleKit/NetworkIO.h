#pragma once

#include <string>

/// One line of traffic, for the console.
struct NetworkIO {
    enum class Direction { inbound, outbound };

    Direction direction = Direction::inbound;
    std::string description;

    bool operator==(const NetworkIO&) const = default;
};
