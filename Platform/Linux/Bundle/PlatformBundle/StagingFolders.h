#pragma once

#include "PlatformBundle/FileDescriptor.h"

#include <filesystem>
#include <map>

/// The folders in which updates are prepared: "UpdateKit/UUID" in the temporary folder of this user's programs.
///
/// Several of those may run at a time, so each folder is locked for as long as its program uses it, and the system
/// takes the lock away when the program dies, however it does. What nobody has locked is a leftover. "UpdateKit"
/// itself is locked too, against others, for as long as this lives.
///
/// One thread; the locks of folders that were not removed last until the object's end, the folders longer.
class StagingFolders {
public:
    using Path = std::filesystem::path;

    /// @param temporaryFolder  must be there, and be this user's alone
    explicit StagingFolders(Path temporaryFolder);

    /// Removes what dead programs have left. For the program's start.
    void removeLeftovers();

    /// A new folder, its name an upper-case UUID.
    /// @throws std::system_error
    Path make();

    /// With all that is in it. What can't be removed stays; never throws.
    void remove(const Path& folder);

private:
    void enter();

    const Path top;
    FileDescriptor topLock;
    std::map<Path, FileDescriptor> locks;
};
