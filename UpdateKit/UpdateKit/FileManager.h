#pragma once

#include <filesystem>

/// Moves and removes whole folders. Blocks; may be called on any thread.
class FileManager {
public:
    using Path = std::filesystem::path;

    virtual ~FileManager() = default;

    [[nodiscard]] virtual bool exists(const Path& path) = 0;

    /// Makes sure, as far as that can be known, that `source` can be moved to `destination` by one rename, and
    /// that there is room and permission for it.
    /// @return `source`, if both lie on one volume; else a complete copy of it beside `destination`, which
    ///         the caller moves or removes
    /// @throws std::system_error  nothing is left behind
    [[nodiscard]] virtual Path prepareMove(const Path& source, const Path& destination) = 0;

    /// One rename; across volumes a copy, a rename, and the removal of the source. Replaces nothing.
    /// @throws std::system_error  the source lies where it was, and nothing at the destination
    virtual void move(const Path& source, const Path& destination) = 0;

    /// Removes a file, a link (not what it leads to) or a folder with all that is in it. Does nothing if there
    /// is no such path.
    /// @throws std::system_error  part of it may be left
    virtual void remove(const Path& path) = 0;
};
