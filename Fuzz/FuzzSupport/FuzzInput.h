#pragma once

#include "Base/Bytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

/// Takes numbers, texts and choices from the front of the fuzzer's bytes. Once these are used up, every
/// number is 0 and every text empty.
///
/// A text follows its length, so that an input can be written by hand.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : remaining(data, size) {}

    bool isEmpty() const { return remaining.empty(); }

    std::uint8_t byte() {
        if (remaining.empty()) return 0;
        const std::uint8_t value = remaining.front();
        remaining = remaining.subspan(1);
        return value;
    }

    /// 0 to `limit` - 1.
    std::size_t below(std::size_t limit) { return byte() % limit; }

    bool flag() { return (byte() & 1) != 0; }

    /// Reads a length of one byte, and as many bytes, or all that are left if there are fewer.
    ByteView bytes() {
        const std::size_t length = std::min<std::size_t>(byte(), remaining.size());
        const ByteView taken = remaining.first(length);
        remaining = remaining.subspan(length);
        return taken;
    }
    std::string text() { return std::string(textOf(bytes())); }

    ByteView rest() { return std::exchange(remaining, {}); }

private:
    ByteView remaining;
};
