#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

/// The only source of chance in a simulation. The same seed gives the same numbers on every machine.
///
/// The distributions are our own, since those of the standard library differ between libraries.
/// Source of the step: splitmix64 (Steele, Lea, Flood 2014).
class Random {
public:
    explicit Random(std::uint64_t seed) : state(seed) {}

    std::uint64_t next() {
        std::uint64_t z = (state += 0x9e3779b97f4a7c15);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    }

    /// From 0 up to, but without, 1.
    double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }
    double between(double low, double high) { return low + (high - low) * unit(); }
    /// As `between`, with every order of magnitude equally likely.
    double spread(double low, double high) { return low * std::pow(high / low, unit()); }
    /// A gap between events that happen independently of each other.
    double gap(double mean) { return -mean * std::log(1 - unit()); }
    /// From 0 to count - 1. @param count  not 0
    std::size_t below(std::size_t count) { return static_cast<std::size_t>(next() % count); }
    bool chance(double probability) { return unit() < probability; }
    void fill(std::span<std::uint8_t> bytes) {
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(next());
    }

private:
    std::uint64_t state;
};
