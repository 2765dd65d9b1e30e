#include "StateKit/LargeBuffer.h"

#include <cstdlib>
#include <new>
#include <sys/mman.h>
#include <utility>

namespace {

constexpr std::size_t largePage = std::size_t(2) << 20;

}  // namespace

LargeBuffer::LargeBuffer(std::size_t size) : _size(size) {
    if (size < 2 * largePage) {
        bytes = static_cast<char*>(std::malloc(size == 0 ? 1 : size));
    } else {
        const std::size_t whole = (size + largePage - 1) / largePage * largePage;
        bytes = static_cast<char*>(std::aligned_alloc(largePage, whole));
        // The result does not matter: without large pages the buffer is only slower.
        if (bytes != nullptr) static_cast<void>(madvise(bytes, whole, MADV_HUGEPAGE));
    }
    if (bytes == nullptr) throw std::bad_alloc();
}

LargeBuffer::LargeBuffer(LargeBuffer&& other) noexcept
    : bytes(std::exchange(other.bytes, nullptr)), _size(std::exchange(other._size, 0)) {}

LargeBuffer& LargeBuffer::operator=(LargeBuffer&& other) noexcept {
    std::swap(bytes, other.bytes);
    std::swap(_size, other._size);
    return *this;
}

LargeBuffer::~LargeBuffer() { std::free(bytes); }
