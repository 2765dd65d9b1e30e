#pragma once

#include "UpdateKit/InstallerRequest.h"
#include "UpdateKit/InstallerService.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

/// What the installer service answers.
struct InstallerReply {
    std::optional<std::string> errorMessage;  // nothing: installed, and the new application started
    bool shouldPresentToUser = false;         // whether the message is worded for the user

    bool operator==(const InstallerReply&) const = default;
};

/// Carries out a request, and blocks until that is done. Never throws.
/// @param makeService  called twice: for `validate` and for `run`
[[nodiscard]] InstallerReply installUpdate(const InstallerLaunchRequest& request,
                                           const std::function<std::unique_ptr<InstallerService>()>& makeService);
