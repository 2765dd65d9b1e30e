#pragma once

#include <unistd.h>
#include <utility>

/// Owns a descriptor of the kernel's (a file, folder, socket, pipe, process) and closes it at its end. Move-only.
class FileDescriptor {
public:
    FileDescriptor() = default;
    /// Takes over what a system call returned; a negative number stands for none.
    explicit FileDescriptor(int number) : number(number) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : number(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        FileDescriptor old(std::exchange(number, other.release()));
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    explicit operator bool() const { return number >= 0; }
    /// The number, still owned by this object; negative if there is none.
    int get() const { return number; }
    /// Leaves the closing to the caller.
    [[nodiscard]] int release() noexcept { return std::exchange(number, -1); }
    void reset() noexcept {
        if (number >= 0) ::close(std::exchange(number, -1));
    }
    /// Closes a file that was written, since some file systems tell only now that the disk is full.
    /// @return whether that went well; `errno` says why not. The descriptor is closed in any case.
    [[nodiscard]] bool close() { return ::close(std::exchange(number, -1)) == 0; }

private:
    int number = -1;
};
