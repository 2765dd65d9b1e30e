#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// A run of bytes that somebody owns.
using Bytes = std::vector<std::uint8_t>;

/// A run of bytes that somebody else owns, for the length of a call.
using ByteView = std::span<const std::uint8_t>;

/// The UTF-8 bytes of a text, borrowed.
inline ByteView bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// Bytes read as text, borrowed and unchecked: the caller knows that they are UTF-8, or checks.
inline std::string_view textOf(ByteView bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }
