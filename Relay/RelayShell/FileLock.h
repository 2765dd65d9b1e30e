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
/// The system gives the lock back when the object is gone in this process and in all that were forked from
/// it, whatever ended them.
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
    /// Lets go of the file: what is called next fails. A process that was forked keeps the lock.
    void close() { descriptor.reset(); }

    /// What stands in the file, up to 1000 bytes. @throws FileLockError
    std::string text() const;
    /// @throws FileLockError
    void setText(const std::string& text);

private:
    std::filesystem::path file;
    FileDescriptor descriptor;
};
