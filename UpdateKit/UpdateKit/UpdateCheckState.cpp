#include "UpdateKit/UpdateCheckState.h"

#include "Base/Check.h"
#include "UpdateKit/FileUrl.h"

const char* name(UpdateCheckMode mode) {
    switch (mode) {
        case UpdateCheckMode::manual: return "manual";
        case UpdateCheckMode::automatic: return "automatic";
    }
    fatal("a mode of checking has no name");
}

bool UpdateCheckState::begin(UpdateCheckMode mode, const Url& manifestUrl, std::optional<bool> networkIsReachable) {
    if (isCheckingForUpdates) return false;
    if (mode == UpdateCheckMode::automatic && !FileUrl::isFile(manifestUrl) && !networkIsReachable.value_or(false))
        return false;
    isCheckingForUpdates = true;
    return true;
}
