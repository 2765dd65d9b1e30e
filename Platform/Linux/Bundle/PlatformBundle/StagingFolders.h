#pragma once

#include "Base/FileDescriptor.h"

#include <filesystem>
#include <map>
#include <memory>

/// The folders in which updates are prepared: "UpdateKit/UUID" in the temporary folder of this user's programs.
///
/// Several of these programs may run at a time, so each folder is locked for as long as its program uses it, and the
/// system takes the lock away when the program dies, in whatever way. A folder that nobody has locked is a leftover.
/// "UpdateKit" itself is locked too, against others, for as long as this object lives. The locks are shared: the
/// installer adds its own to that of the program that it is going to end.
///
/// One thread. A folder that was not removed stays locked until this object's end, and lies there after it.
class StagingFolders {
public:
    using Path = std::filesystem::path;

    /// @param temporaryFolder  this user's alone; made anew, with the folders above it, if it was removed
    explicit StagingFolders(Path temporaryFolder);

    /// Removes what dead programs have left. Call it at the program's start.
    void removeLeftovers();

    /// Makes a new folder, whose name is an upper-case UUID.
    /// @throws std::system_error
    Path make();

    /// Removes a folder with all that is in it. What can't be removed stays; never throws.
    void remove(const Path& folder);

    /// Keeps an update from being taken for a leftover for as long as the returned handle lives, even if the program
    /// that prepared it has ended.
    /// @param update  in a folder that `make` has made, in this program or another; for other paths nothing is locked
    /// @throws std::runtime_error  somebody has taken it for a leftover already, and is removing it
    static std::shared_ptr<void> hold(const Path& update);

private:
    void enter();

    const Path top;
    FileDescriptor topLock;
    std::map<Path, FileDescriptor> locks;
};
