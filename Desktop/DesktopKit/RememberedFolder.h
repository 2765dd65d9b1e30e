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

/// The application's folder, held for this program, and what was remembered in it, which another thread reads.
///
/// Reading takes about as long as the toolkit takes from its start to the first window. So this is made before the
/// toolkit, and both are done at the same time. The end waits until all is read.
class RememberedFolder {
public:
    /// @param dataDir  as for `ApplicationFolder`
    /// @param now  decides which leftovers in the temporary folder are old
    /// @throws ApplicationFolderInUse, ApplicationFolderError
    RememberedFolder(const std::optional<std::filesystem::path>& dataDir, Date now);

    const ApplicationFolder& folder() const { return _folder; }

    /// What `State::load` gives for the folder and the last server in use. Waits until it is read. Once.
    State takeState() { return state.get(); }

private:
    const ApplicationFolder _folder;
    std::future<State> state;
};

/// Another program holds the folder: perhaps this one, started earlier.
struct FolderInUse {
    std::string text;  // says who, for the user
};

/// The folder can't be used, whoever holds it.
struct FolderTrouble {
    std::string text;
};

/// What came of taking the folder at the very start, where there is nothing yet to tell it with.
using FolderAtStart = std::variant<std::unique_ptr<RememberedFolder>, FolderInUse, FolderTrouble>;

/// Takes it, and throws nothing.
FolderAtStart takeFolder(const std::optional<std::filesystem::path>& dataDir, Date now);
