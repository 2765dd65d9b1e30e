#pragma once

#include "Base/FileDescriptor.h"
#include "PlatformCore/NetworkPath.h"
#include "StateKit/MainLoop.h"
#include "StateKit/PathMonitor.h"

#include <memory>
#include <string>

class QSocketNotifier;
class SleepWatch;

/// Watches this machine's way to the network through rtnetlink, and its sleep through logind.
///
/// The path is satisfied if there is a default route, or if the machine has no network interface but
/// loopback, or if the endpoint in use is on this machine. `start` posts the first report. Then each change
/// of the default routes, or of whether the path is satisfied, is one report, however many messages the
/// kernel sends for it; each change of the endpoint is one too. Waking from sleep is two reports: first that
/// the path is not satisfied, then what it is now.
///
/// If the kernel does not answer, the path counts as satisfied. Main thread only; the handler never runs
/// inside a call of this object and may destroy it.
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
    std::shared_ptr<std::function<void(bool)>> handler;  // a report shares it while it calls it
    std::shared_ptr<char> life;                          // reset when the watch ends; posted work holds it weakly
    std::string endpointUrl;
    NetworkPath path;
    bool wasSatisfied = false;
    std::unique_ptr<QSocketNotifier> notifier;
    std::unique_ptr<SleepWatch> sleepWatch;
    FileDescriptor events;  // the socket on which the kernel tells of changes
    bool isUpdatePosted = false;
};
