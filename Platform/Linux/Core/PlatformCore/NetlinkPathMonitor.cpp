#include "PlatformCore/NetlinkPathMonitor.h"

#include "PlatformCore/SleepWatch.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <utility>

NetlinkPathMonitor::NetlinkPathMonitor(MainLoop& loop) : loop(loop) {}

NetlinkPathMonitor::~NetlinkPathMonitor() { cancel(); }

void NetlinkPathMonitor::start(std::function<void(bool)> newHandler) {
    cancel();
    handler = std::make_shared<std::function<void(bool)>>(std::move(newHandler));
    life = std::make_shared<char>();
    // Listen before the first look, so that no change between the two is missed.
    listen();
    sleepWatch = std::make_unique<SleepWatch>(QDBusConnection::systemBus(), [this] {
        path = NetworkPath::current();
        wasSatisfied = path.isSatisfied(endpointUrl);
        report(false);
        report(wasSatisfied);
    });
    path = NetworkPath::current();
    wasSatisfied = path.isSatisfied(endpointUrl);
    report(wasSatisfied);
}

void NetlinkPathMonitor::cancel() {
    handler.reset();
    life.reset();
    notifier.reset();
    sleepWatch.reset();
    events.reset();
    isUpdatePosted = false;
}

void NetlinkPathMonitor::setEndpointUrl(std::string url) {
    if (url == endpointUrl) return;
    endpointUrl = std::move(url);
    if (!handler) return;
    wasSatisfied = path.isSatisfied(endpointUrl);
    report(wasSatisfied);
}

void NetlinkPathMonitor::listen() {
    events = FileDescriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    if (!events) return;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    if (bind(events.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return events.reset();
    notifier = std::make_unique<QSocketNotifier>(events.get(), QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, [this] { kernelSpoke(); });
}

void NetlinkPathMonitor::kernelSpoke() {
    // Throw the messages away: `update` asks the kernel for everything anew. So it does no harm either that
    // some are lost when there are too many (ENOBUFS).
    std::array<char, 8192> words;
    for (;;) {
        const ssize_t received = recv(events.get(), words.data(), words.size(), 0);
        if (received > 0 || (received < 0 && (errno == EINTR || errno == ENOBUFS))) continue;
        break;
    }
    if (std::exchange(isUpdatePosted, true)) return;
    loop.post([this, weakLife = std::weak_ptr(life)] {
        if (!weakLife.expired()) update();
    });
}

void NetlinkPathMonitor::update() {
    isUpdatePosted = false;
    NetworkPath now = NetworkPath::current();
    const bool isSatisfied = now.isSatisfied(endpointUrl);
    // A change of addresses or interfaces counts only if it changes the answer: a machine with containers
    // gains and loses some all day.
    const bool hasChanged = now.defaultRoutes != path.defaultRoutes || isSatisfied != wasSatisfied;
    path = std::move(now);
    wasSatisfied = isSatisfied;
    if (hasChanged) report(isSatisfied);
}

void NetlinkPathMonitor::report(bool isSatisfied) {
    loop.post([watch = std::weak_ptr(handler), isSatisfied] {
        if (const auto told = watch.lock(); told && *told) (*told)(isSatisfied);
    });
}
