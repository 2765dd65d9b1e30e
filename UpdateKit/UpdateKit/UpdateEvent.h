#pragma once

#include "UpdateKit/ReadyUpdateInfo.h"
#include "UpdateKit/UpdateFailureInfo.h"
#include "UpdateKit/UpdateNoUpdateInfo.h"

#include <variant>

/// What the updater reports: an update that is ready, a failure, or that there is none.
using UpdateEvent = std::variant<ReadyUpdateInfo, UpdateFailureInfo, UpdateNoUpdateInfo>;
