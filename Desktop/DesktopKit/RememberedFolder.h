#pragma once

#include "PlatformCore/ApplicationFolder.h"
#include "StateKit/Date.h"
#include "VimbleKit/State.h"

#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <variant>

/// Holds the application's folder for this program, and reads the saved state in it on another thread.
///
/// Reading takes about as long as the toolkit takes from its start to the first window. So this is made before the
/// toolkit, and both run at the same time. The destructor waits until all is read.
class RememberedFolder {
public:
    /// @param dataDir  as for `ApplicationFolder`
    /// @param now  decides which leftovers in the temporary folder are old
    /// @throws ApplicationFolderInUse, ApplicationFolderError
    RememberedFolder(const std::optional<std::filesystem::path>& dataDir, Date now);

    const ApplicationFolder& folder() const { return _folder; }

    /// What `State::load` gives for the folder and the last server in use. Waits until it is read; call it only once.
    State takeState() { return state.get(); }

private:
    const ApplicationFolder _folder;
    std::future<State> state;
};

/// Another program holds the folder: perhaps this one, started earlier.
struct FolderInUse {
    std::string text;  // tells the user which program holds it
};

/// The folder can't be used, for a reason other than another program that holds it.
struct FolderTrouble {
    std::string text;
};

/// The result of `takeFolder`. Failures are kept as values, since no dialog can be shown before the toolkit starts.
using FolderAtStart = std::variant<std::unique_ptr<RememberedFolder>, FolderInUse, FolderTrouble>;

/// Takes the folder for this program. Throws nothing.
FolderAtStart takeFolder(const std::optional<std::filesystem::path>& dataDir, Date now);
