#pragma once

#include "Base/FileDescriptor.h"

#include <filesystem>
#include <stdexcept>
#include <string>

/// A file to be locked can't be opened, read or written: one line for people.
class FileLockError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file whose exclusive lock (`flock`) one process at a time can have.
///
/// The processes that were forked from this one share the lock. The system gives it back when the last of them
/// has destroyed the object or has ended, even by a crash.
class FileLock {
public:
    /// Opens the file, or makes it and its folder, for this user alone. Takes no lock.
    /// @throws FileLockError
    explicit FileLock(std::filesystem::path file);
    FileLock(FileLock&& other) noexcept = default;
    FileLock& operator=(FileLock&&) = delete;

    /// Takes the lock unless somebody else has one on the file. @return whether it was taken
    [[nodiscard]] bool tryTake();
    /// Waits for the lock.
    void take();
    /// Gives the lock back, for all processes that share it.
    void giveBack();
    /// Closes the file in this process: later calls fail. A process that was forked keeps the lock.
    void close() { descriptor.reset(); }

    /// The first 1000 bytes of the file at most. @throws FileLockError
    std::string text() const;
    /// @throws FileLockError
    void setText(const std::string& text);

private:
    std::filesystem::path file;
    FileDescriptor descriptor;
};
