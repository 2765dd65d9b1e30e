#include "DesktopKit/WipedBuffer.h"

#include "TweetNacl/Nacl.h"

#include <algorithm>
#include <cstddef>

WipedBuffer::WipedBuffer() { open(QIODevice::WriteOnly | QIODevice::Unbuffered); }

WipedBuffer::~WipedBuffer() { Nacl::wipe(bytes); }

qint64 WipedBuffer::writeData(const char* data, qint64 size) {
    const auto needed = bytes.size() + static_cast<std::size_t>(size);
    if (needed > bytes.capacity()) {
        Bytes larger;
        larger.reserve(std::max<std::size_t>(2 * needed, 64 * 1024));
        larger.assign(bytes.begin(), bytes.end());
        Nacl::wipe(bytes);
        bytes.swap(larger);
    }
    bytes.insert(bytes.end(), data, data + size);
    return size;
}
