#pragma once

#include "Base/FileDescriptor.h"
#include "StateKit/Date.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

/// Why the application's folder can't be used, in one line for the user.
class ApplicationFolderError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Another program uses the folder.
class ApplicationFolderInUse : public ApplicationFolderError {
public:
    ApplicationFolderInUse(const std::filesystem::path& folder, std::string program, std::optional<int> processId);

    std::string program;  // the name that it gave itself; empty if it has not written it yet
    std::optional<int> processId;
};

/// The folder of the application's own files, which only one program at a time may use.
///
/// Two programs in one folder would overwrite each other's history, so this object holds a lock for as long
/// as it lives; the system releases the lock if the program dies in any way. The lock is a file ".lock" in
/// the folder, which says who holds it: "PID PROGRAM" in one line.
class ApplicationFolder {
public:
    /// Makes the folder (mode 0700) if it is not there, takes the lock, and prepares the temporary folder.
    /// @param dataDir  instead of "zorvane.Vimble" in $XDG_DATA_HOME, or ~/.local/share
    /// @param program  how this program names itself to others
    /// @param now  decides which leftovers are old
    /// @throws ApplicationFolderInUse  another program holds the lock
    /// @throws ApplicationFolderError  the folder can't be made, entered or locked
    ApplicationFolder(const std::optional<std::filesystem::path>& dataDir, const std::string& program, Date now);
    ApplicationFolder(const ApplicationFolder&) = delete;
    ApplicationFolder& operator=(const ApplicationFolder&) = delete;

    const std::filesystem::path& path() const { return folder; }

    /// The path of the folder for that choice; the folder need not exist yet.
    /// @throws ApplicationFolderError  nothing is chosen, and there is no home folder
    static std::filesystem::path place(const std::optional<std::filesystem::path>& dataDir);

    /// A folder that only this user can enter: "zorvane.Vimble/tmp" in $XDG_CACHE_HOME, or ~/.cache.
    /// This user's programs share it. The constructor has removed what was last changed over a day
    /// ago, except folders on which another program holds a lock.
    const std::filesystem::path& temporary() const { return temporaryFolder; }

private:
    void lock(const std::string& program);

    std::filesystem::path folder;
    std::filesystem::path temporaryFolder;
    FileDescriptor lockFile;
};
