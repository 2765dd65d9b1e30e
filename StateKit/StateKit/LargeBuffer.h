#pragma once

#include <cstddef>

/// Room for a text that is read as a whole, and thrown away soon after.
///
/// New memory costs a fault for each page that is touched for the first time, which for a file of many
/// megabytes is a good part of the time that reading it takes. A large buffer asks the system for large
/// pages; where there are none it is ordinary memory. The contents are not initialised. Move-only.
class LargeBuffer {
public:
    LargeBuffer() = default;
    /// @throws std::bad_alloc
    explicit LargeBuffer(std::size_t size);
    LargeBuffer(LargeBuffer&& other) noexcept;
    LargeBuffer& operator=(LargeBuffer&& other) noexcept;
    LargeBuffer(const LargeBuffer&) = delete;
    LargeBuffer& operator=(const LargeBuffer&) = delete;
    ~LargeBuffer();

    char* data() const { return bytes; }
    std::size_t size() const { return _size; }

private:
    char* bytes = nullptr;
    std::size_t _size = 0;
};
