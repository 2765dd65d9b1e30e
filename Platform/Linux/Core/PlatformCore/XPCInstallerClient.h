#pragma once

#include "StateKit/Host.h"
#include "UpdateKit/UpdateKitInstalling.h"

#include <chrono>
#include <optional>
#include <string>

/// Asks the installer service on the session bus, which the bus starts if need be.
///
/// Each request has a connection of its own. If the service dies, or the bus, the request has failed at once. The
/// service may have to copy a large bundle, so it has plenty of time; what does not answer then counts as a failed
/// connection. It may be at work all the same, and whoever asks again is heard by the same service, which does one
/// thing at a time.
///
/// On any one thread that has an event loop of Qt; completes there, and never within the call.
class XPCInstallerClient : public UpdateKitInstalling {
public:
    static constexpr std::chrono::minutes answerTime{10};

    /// @param host  whose bundle identifier names the service; outlives this
    /// @param serviceNameOverride  another service than the application's own
    /// @param busAddress  another bus than the session's, as D-Bus writes addresses
    /// @param limit  how long to wait for an answer
    explicit XPCInstallerClient(const Host& host, std::optional<std::string> serviceNameOverride = {},
                                std::optional<std::string> busAddress = {},
                                std::chrono::milliseconds limit = answerTime);

    std::shared_ptr<void> install(const InstallerRequest& request, Completion<Done> completion) override;

private:
    const Host& host;
    const std::optional<std::string> serviceNameOverride;
    const std::optional<std::string> busAddress;
    const std::chrono::milliseconds limit;
};
