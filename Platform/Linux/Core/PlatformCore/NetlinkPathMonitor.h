#pragma once

#include "PlatformCore/NetworkPath.h"
#include "StateKit/MainLoop.h"
#include "StateKit/PathMonitor.h"

#include <memory>
#include <string>

class QSocketNotifier;
class SleepWatch;

/// Watches this machine's way to the network through rtnetlink, and its sleep through logind.
///
/// The path is satisfied while there is a default route, while the machine has no network interface
/// but loopback, and while the endpoint in use is on this machine. The first report is posted by
/// `start`; then each change of the default routes, or of what they amount to, is one report, however
/// many words the kernel makes of it; so is every change of the endpoint. Waking from sleep is two: the
/// path went, and is what it is now.
///
/// Where the kernel does not tell, the path counts as satisfied. Main thread only; the handler never
/// runs inside a call of this object and may destroy it.
class NetlinkPathMonitor : public PathMonitor {
public:
    explicit NetlinkPathMonitor(MainLoop& loop);
    ~NetlinkPathMonitor() override;

    void start(std::function<void(bool isSatisfied)> handler) override;
    void cancel() override;

    /// Which endpoint the application uses; none at first.
    void setEndpointUrl(std::string url);

private:
    void listen();
    void kernelSpoke();
    void update();
    void report(bool isSatisfied);

    MainLoop& loop;
    std::shared_ptr<std::function<void(bool)>> handler;  // held by a report while it is told
    std::shared_ptr<char> life;                          // ends with the watch: posted work holds it weakly
    std::string endpointUrl;
    NetworkPath path;
    bool wasSatisfied = false;
    std::unique_ptr<QSocketNotifier> notifier;
    std::unique_ptr<SleepWatch> sleepWatch;
    int events = -1;  // the socket on which the kernel tells of changes
    bool isUpdatePosted = false;
};
