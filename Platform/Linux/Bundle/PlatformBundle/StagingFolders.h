#pragma once

#include "PlatformBundle/FileDescriptor.h"

#include <filesystem>
#include <map>
#include <memory>

/// The folders in which updates are prepared: "UpdateKit/UUID" in the temporary folder of this user's programs.
///
/// Several of those may run at a time, so each folder is locked for as long as its program uses it, and the system
/// takes the lock away when the program dies, however it does. What nobody has locked is a leftover. "UpdateKit"
/// itself is locked too, against others, for as long as this lives. The locks are shared: the installer adds its own
/// to that of the program that it is going to end.
///
/// One thread; the locks of folders that were not removed last until the object's end, the folders longer.
class StagingFolders {
public:
    using Path = std::filesystem::path;

    /// @param temporaryFolder  this user's alone; made anew, with what is above it, should it have been taken away
    explicit StagingFolders(Path temporaryFolder);

    /// Removes what dead programs have left. For the program's start.
    void removeLeftovers();

    /// A new folder, its name an upper-case UUID.
    /// @throws std::system_error
    Path make();

    /// With all that is in it. What can't be removed stays; never throws.
    void remove(const Path& folder);

    /// Keeps an update from being taken for a leftover for as long as the answer lives, whoever prepared it, and
    /// though that one may have ended.
    /// @param update  somewhere in a folder of `make`'s, of this program or another; elsewhere there is nothing to keep
    /// @throws std::runtime_error  somebody has taken it for a leftover already, and is removing it
    static std::shared_ptr<void> hold(const Path& update);

private:
    void enter();

    const Path top;
    FileDescriptor topLock;
    std::map<Path, FileDescriptor> locks;
};
