#include "DesktopKit/RememberedFolder.h"

#include <exception>

namespace {

constexpr char programName[] = "vimble";

}  // namespace

RememberedFolder::RememberedFolder(const std::optional<std::filesystem::path>& dataDir, Date now)
    : _folder(dataDir, programName, now),
      state(std::async(std::launch::async, [path = _folder.path()] { return State::load(path, {}); })) {}

FolderAtStart takeFolder(const std::optional<std::filesystem::path>& dataDir, Date now) {
    try {
        return std::make_unique<RememberedFolder>(dataDir, now);
    } catch (const ApplicationFolderInUse& error) {
        return FolderInUse{error.what()};
    } catch (const std::exception& error) {
        return FolderTrouble{error.what()};
    }
}
