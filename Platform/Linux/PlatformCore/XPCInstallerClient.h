#pragma once

#include "StateKit/Host.h"
#include "UpdateKit/UpdateKitInstalling.h"

#include <optional>
#include <string>

/// Asks the installer service on the session bus, which the bus starts if need be.
///
/// Each request has a connection of its own. There is no limit of time: the service may have to copy a large
/// bundle. If it dies, or the bus, the request has failed at once.
///
/// On any one thread that has an event loop of Qt; completes there, and never within the call.
class XPCInstallerClient : public UpdateKitInstalling {
public:
    /// @param host  whose bundle identifier names the service; outlives this
    /// @param serviceNameOverride  another service than the application's own
    /// @param busAddress  another bus than the session's, as D-Bus writes addresses
    explicit XPCInstallerClient(const Host& host, std::optional<std::string> serviceNameOverride = {},
                                std::optional<std::string> busAddress = {});

    std::shared_ptr<void> install(const InstallerRequest& request, Completion<Done> completion) override;

private:
    const Host& host;
    const std::optional<std::string> serviceNameOverride;
    const std::optional<std::string> busAddress;
};
