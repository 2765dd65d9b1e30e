#pragma once

#include "StateKit/Date.h"
#include "Text/Url.h"

#include <optional>
#include <string>

/// What the rest of the program learns of an update.
struct ReadyUpdateInfo {
    std::string version;  // a `SemanticVersion`'s description
    std::string displayName;
    std::optional<Date> publicationDate;  // nothing fills it yet
    Url downloadUrl;                      // absolute

    bool operator==(const ReadyUpdateInfo&) const = default;
};
