#pragma once

#include "UpdateKit/InstallerClientError.h"
#include "UpdateKit/InstallerRequest.h"
#include "UpdateKit/Outcome.h"

#include <memory>

/// The way to the service that replaces the application.
class UpdateKitInstalling {
public:
    virtual ~UpdateKitInstalling() = default;

    /// Asks the service to install. If it succeeds, it ends this process, before or after the completion.
    /// Called on the update coordinator's thread, and completes there; every failure is an
    /// `InstallerClientError`.
    /// @return a handle; once it is dropped, the answer is not waited for, and the completion dropped uncalled
    [[nodiscard]] virtual std::shared_ptr<void> install(const InstallerRequest& request,
                                                        Completion<Done> completion) = 0;
};
