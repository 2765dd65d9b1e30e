#pragma once

#include "Text/Url.h"

#include <optional>

/// Who wants the check: the user, or the clock and the network.
enum class UpdateCheckMode { manual, automatic };

/// The case's own name, as the log has it.
const char* name(UpdateCheckMode mode);

/// Whether a check runs; decides whether another may begin.
struct UpdateCheckState {
    bool isCheckingForUpdates = false;

    /// Admits one check at a time, and marks it as running. The user's is admitted whatever the network says;
    /// an automatic one needs a network, unless the manifest is a file.
    /// @param networkIsReachable  nothing before the first report, which counts as no
    [[nodiscard]] bool begin(UpdateCheckMode mode, const Url& manifestUrl, std::optional<bool> networkIsReachable);

    bool operator==(const UpdateCheckState&) const = default;
};
