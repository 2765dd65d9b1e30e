#include "PlatformCore/NetworkPath.h"

#include "Base/FileDescriptor.h"
#include "QtText/QtText.h"

#include <QHostAddress>
#include <QUrl>

#include <algorithm>
#include <array>
#include <cerrno>
#include <functional>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t receiveBytes = 64 << 10;
constexpr int dumpTries = 4;  // a table that changes while it is listed is listed again

/// A socket that asks the kernel for one table after the other.
class Netlink {
public:
    Netlink() : netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
        const timeval patience{1, 0};
        if (netlink) setsockopt(netlink.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    /// Calls `each` with every entry of a table. @return false if the kernel did not list it to the end
    bool dump(std::uint16_t type, std::uint8_t family, const std::function<void()>& begin,
              const std::function<void(const nlmsghdr&)>& each) {
        for (int tries = 0; tries < dumpTries; ++tries) {
            begin();
            switch (dumpOnce(type, family, each)) {
                case Outcome::complete: return true;
                case Outcome::interrupted: continue;
                case Outcome::failed: return false;
            }
        }
        return false;
    }

private:
    enum class Outcome { complete, interrupted, failed };

    Outcome dumpOnce(std::uint16_t type, std::uint8_t family, const std::function<void(const nlmsghdr&)>& each) {
        if (!netlink) return Outcome::failed;
        struct {
            nlmsghdr header;
            rtmsg route;  // the longest body of any request; all begin with the family
        } request{};
        request.header.nlmsg_len = sizeof request;
        request.header.nlmsg_type = type;
        request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        request.header.nlmsg_seq = ++sequence;
        request.route.rtm_family = family;
        if (send(netlink.get(), &request, sizeof request, 0) < 0) return Outcome::failed;

        bool isInterrupted = false;
        alignas(nlmsghdr) static std::array<char, receiveBytes> buffer;  // only the main thread calls this
        for (;;) {
            const ssize_t received = recv(netlink.get(), buffer.data(), buffer.size(), 0);
            if (received < 0 && errno == EINTR) continue;
            if (received <= 0) return Outcome::failed;
            auto left = static_cast<unsigned>(received);
            for (auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data()); NLMSG_OK(message, left);
                 message = NLMSG_NEXT(message, left)) {
                if (message->nlmsg_seq != sequence) continue;
                if ((message->nlmsg_flags & NLM_F_DUMP_INTR) != 0) isInterrupted = true;
                if (message->nlmsg_type == NLMSG_ERROR) return Outcome::failed;
                if (message->nlmsg_type == NLMSG_DONE) return isInterrupted ? Outcome::interrupted : Outcome::complete;
                each(*message);
            }
        }
    }

    const FileDescriptor netlink;
    std::uint32_t sequence = 0;
};

/// Calls `each` with every attribute behind a message's body.
template <class Body>
void forAttributes(const nlmsghdr& message, const std::function<void(const rtattr&)>& each) {
    auto* const body = static_cast<const char*>(NLMSG_DATA(&message));
    int left = static_cast<int>(message.nlmsg_len) - static_cast<int>(NLMSG_SPACE(sizeof(Body)));
    for (auto* attribute = reinterpret_cast<const rtattr*>(body + NLMSG_ALIGN(sizeof(Body))); RTA_OK(attribute, left);
         attribute = RTA_NEXT(attribute, left))
        each(*attribute);
}

template <class Body>
const Body* bodyOf(const nlmsghdr& message) {
    return message.nlmsg_len < NLMSG_LENGTH(sizeof(Body)) ? nullptr : static_cast<const Body*>(NLMSG_DATA(&message));
}

Bytes contentOf(const rtattr& attribute) {
    const auto* data = static_cast<const std::uint8_t*>(RTA_DATA(&attribute));
    return {data, data + RTA_PAYLOAD(&attribute)};
}

void addRoute(const nlmsghdr& message, std::vector<NetworkPath::Route>& routes) {
    const auto* body = bodyOf<rtmsg>(message);
    if (body == nullptr || message.nlmsg_type != RTM_NEWROUTE || body->rtm_dst_len != 0 || body->rtm_src_len != 0)
        return;
    // Pass over routes that lead nowhere: "unreachable default", or one whose cable is out.
    if (body->rtm_type != RTN_UNICAST || (body->rtm_flags & (RTNH_F_DEAD | RTNH_F_LINKDOWN | RTM_F_CLONED)) != 0)
        return;
    NetworkPath::Route route;
    route.family = body->rtm_family;
    forAttributes<rtmsg>(message, [&route](const rtattr& attribute) {
        const Bytes content = contentOf(attribute);
        if (attribute.rta_type == RTA_GATEWAY) route.gateway = content;
        if (attribute.rta_type == RTA_OIF && content.size() >= sizeof(int))
            std::copy_n(content.begin(), sizeof(int), reinterpret_cast<std::uint8_t*>(&route.interface));
    });
    routes.push_back(std::move(route));
}

/// Whether an interface may lead somewhere. The kernel makes the ends of some tunnels by itself in
/// every network namespace; as long as they are down, nobody uses them.
bool countsAsInterface(const nlmsghdr& message) {
    const auto* body = bodyOf<ifinfomsg>(message);
    if (body == nullptr || message.nlmsg_type != RTM_NEWLINK || (body->ifi_flags & IFF_LOOPBACK) != 0) return false;
    switch (body->ifi_type) {
        case ARPHRD_TUNNEL:
        case ARPHRD_TUNNEL6:
        case ARPHRD_SIT:
        case ARPHRD_IPGRE:
        case ARPHRD_IP6GRE: return (body->ifi_flags & IFF_UP) != 0;
        default: return true;
    }
}

void addAddress(const nlmsghdr& message, std::vector<std::string>& addresses) {
    const auto* body = bodyOf<ifaddrmsg>(message);
    if (body == nullptr || message.nlmsg_type != RTM_NEWADDR) return;
    Bytes address;
    forAttributes<ifaddrmsg>(message, [&](const rtattr& attribute) {
        // On a point-to-point link IFA_LOCAL is our address, and IFA_ADDRESS is that of the other end.
        if (attribute.rta_type == IFA_LOCAL || (attribute.rta_type == IFA_ADDRESS && address.empty()))
            address = contentOf(attribute);
    });
    QHostAddress text;
    if (body->ifa_family == AF_INET && address.size() == 4)
        text.setAddress(quint32{address[0]} << 24 | quint32{address[1]} << 16 | quint32{address[2]} << 8 | address[3]);
    else if (body->ifa_family == AF_INET6 && address.size() == 16)
        text.setAddress(address.data());
    else
        return;
    addresses.push_back(fromQt(text.toString()));
}

template <class Value>
void sortUnique(std::vector<Value>& values) {
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
}

}  // namespace

NetworkPath NetworkPath::current() {
    NetworkPath path;
    Netlink netlink;
    path.isKnown = true;
    for (const std::uint8_t family : {AF_INET, AF_INET6}) {
        std::vector<Route> routes;
        const bool isListed = netlink.dump(
            RTM_GETROUTE, family, [&] { routes.clear(); }, [&](const nlmsghdr& message) { addRoute(message, routes); });
        // A kernel without IPv6 refuses to list its table; this counts as an empty one.
        if (!isListed && family == AF_INET) path.isKnown = false;
        if (isListed) path.defaultRoutes.insert(path.defaultRoutes.end(), routes.begin(), routes.end());
    }
    path.isKnown =
        netlink.dump(
            RTM_GETLINK, AF_UNSPEC, [&] { path.hasInterfaces = false; },
            [&](const nlmsghdr& message) { path.hasInterfaces = path.hasInterfaces || countsAsInterface(message); }) &&
        path.isKnown;
    netlink.dump(
        RTM_GETADDR, AF_UNSPEC, [&] { path.ownAddresses.clear(); },
        [&](const nlmsghdr& message) { addAddress(message, path.ownAddresses); });
    sortUnique(path.defaultRoutes);
    sortUnique(path.ownAddresses);
    return path;
}

bool NetworkPath::isOnThisMachine(const std::string& url) const {
    QString host = QUrl(toQt(url)).host().toLower();
    if (host.endsWith(QLatin1Char('.'))) host.chop(1);
    if (host.isEmpty()) return false;
    if (host == QLatin1String("localhost") || host.endsWith(QLatin1String(".localhost"))) return true;
    QHostAddress address(host);
    if (!address.isNull()) {
        address.setScopeId({});
        bool isIpv4 = false;
        const quint32 ipv4 = address.toIPv4Address(&isIpv4);  // also for ::ffff:a.b.c.d
        const QString text = isIpv4 ? QHostAddress(ipv4).toString() : address.toString();
        return address.isLoopback() || std::binary_search(ownAddresses.begin(), ownAddresses.end(), fromQt(text));
    }
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0' && host == toQt(name.data()).toLower();
}

bool NetworkPath::isSatisfied(const std::string& endpointUrl) const {
    return !isKnown || !defaultRoutes.empty() || !hasInterfaces || isOnThisMachine(endpointUrl);
}
