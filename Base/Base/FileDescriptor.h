#pragma once

#include <unistd.h>
#include <utility>

/// Owns a file descriptor.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number(number) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }

    explicit operator bool() const { return number >= 0; }
    int get() const { return number; }
    int release() { return std::exchange(number, -1); }
    void reset() {
        if (number >= 0) ::close(std::exchange(number, -1));
    }

private:
    int number = -1;
};
