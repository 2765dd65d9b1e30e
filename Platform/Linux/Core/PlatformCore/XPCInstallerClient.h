#pragma once

#include "StateKit/Host.h"
#include "UpdateKit/UpdateKitInstalling.h"

#include <chrono>
#include <optional>
#include <string>

/// Asks the installer service on the session bus, which the bus starts if need be.
///
/// Each request has a connection of its own. If the service or the bus dies, the request fails at once. The
/// service may have to copy a large bundle, so it has plenty of time; if it has not answered by then, that counts
/// as a failed connection. The service may still be working then, and a new request goes to the same service,
/// which does one thing at a time.
///
/// Use it on one thread, any that has an event loop of Qt. Completions are called there, never inside `install`.
class XPCInstallerClient : public UpdateKitInstalling {
public:
    static constexpr std::chrono::minutes answerTime{10};

    /// @param host  its bundle identifier names the service; must outlive this object
    /// @param serviceNameOverride  names another service than the application's own
    /// @param busAddress  another bus than the session's, in D-Bus's form of addresses
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
