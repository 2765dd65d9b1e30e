#pragma once

#include <filesystem>
#include <stdexcept>
#include <vector>

/// There is no place in memory. `what()` is a line for the user.
class MemoryFolderError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A new folder (mode 0700) in a file system that lies in memory, for files that must not be written to a disk.
/// The destructor removes the folder with its contents.
///
/// The contents can still be swapped out, as all memory can.
class MemoryFolder {
public:
    /// Where such a folder may be made: the user's runtime folder ($XDG_RUNTIME_DIR), then /dev/shm.
    static std::vector<std::filesystem::path> places();

    /// Makes the folder in the first of the places that is in memory and can be written.
    /// @throws MemoryFolderError  there is none
    explicit MemoryFolder(const std::vector<std::filesystem::path>& places = MemoryFolder::places());
    ~MemoryFolder();
    MemoryFolder(const MemoryFolder&) = delete;
    MemoryFolder& operator=(const MemoryFolder&) = delete;

    const std::filesystem::path& path() const { return folder; }

private:
    std::filesystem::path folder;
};
