#include "RelayShell/Metrics.h"

#include <string_view>

namespace {

/// Writes one metric after the other, each with its help and type.
class MetricsWriter {
public:
    void head(std::string_view name, std::string_view type, std::string_view help) {
        text.append("# HELP vimble_relay_").append(name).append(" ").append(help).append("\n");
        text.append("# TYPE vimble_relay_").append(name).append(" ").append(type).append("\n");
    }
    void sample(std::string_view name, std::string_view labels, std::uint64_t value) {
        text.append("vimble_relay_").append(name).append(labels).append(" ").append(std::to_string(value)).append("\n");
    }
    void counter(std::string_view name, std::string_view help, std::uint64_t value) {
        head(name, "counter", help);
        sample(name, "", value);
    }
    void gauge(std::string_view name, std::string_view help, std::uint64_t value) {
        head(name, "gauge", help);
        sample(name, "", value);
    }

    std::string text;
};

}  // namespace

std::string metricsText(const RelayCounters& core, const RelayGauges& gauges, const ShellCounters& shell) {
    MetricsWriter out;
    out.gauge("links", "Open links.", gauges.links);
    out.gauge("members", "Members.", gauges.members);
    out.gauge("members_online", "Members with a link.", gauges.membersOnline);
    out.gauge("mail_packs", "Packs that wait for members.", gauges.mailPacks);
    out.gauge("mail_bytes", "Bytes of packs that wait for members.", gauges.mailBytes);
    out.gauge("unproved_packs", "Packs on their way, not proved to have arrived.", gauges.unprovedPacks);

    out.counter("links_opened_total", "Links opened.", core.linksOpened);
    out.counter("links_authenticated_total", "Links whose first pack was accepted.", core.linksAuthenticated);
    out.counter("packs_received_total", "Packs from members, commands included.", core.packsReceived);
    out.counter("packs_delivered_total", "Packs handed to links.", core.packsDelivered);
    out.counter("packs_proved_total", "Packs proved to have arrived.", core.packsProved);
    out.counter("packs_stored_total", "Packs written to disk.", core.packsStored);
    out.counter("mail_expired_total", "Packs deleted for their age.", core.mailExpired);
    out.counter("lists_sent_total", "Lists of members sent.", core.listsSent);
    out.counter("commands_total", "Commands from members.", core.commands);
    out.counter("store_failures_total", "Failures of the database.", core.storeFailures);

    out.head("refused_total", "counter", "Packs refused with an error to their author.");
    const auto refused = [&](std::string_view reason, std::uint64_t value) {
        out.sample("refused_total", "{reason=\"" + std::string(reason) + "\"}", value);
    };
    refused("garbage", core.refusedGarbage);
    refused("author", core.refusedAuthor);
    refused("target", core.refusedTarget);
    refused("too_large", core.refusedTooLarge);
    refused("full_mailbox", core.refusedFullMailbox);

    out.head("closed_total", "counter", "Links closed by the relay.");
    const auto closed = [&](std::string_view code, std::string_view reason, std::uint64_t value) {
        out.sample("closed_total", "{code=\"" + std::string(code) + "\",reason=\"" + std::string(reason) + "\"}",
                   value);
    };
    closed("1001", "silent", core.closedSilent);
    closed("1001", "shut_down", core.closedShutDown);
    closed("1002", "protocol", shell.closedProtocol);
    closed("1003", "text", shell.closedText);
    closed("1008", "unknown_key", core.closedUnknownKey);
    closed("1008", "bad_first_pack", core.closedBadFirstPack);
    closed("1008", "removed", core.closedRemoved);
    closed("1009", "frame_size", shell.closedFrameSize);
    closed("1011", "store", core.closedStore);
    closed("1013", "first_pack_late", core.closedFirstPackLate);
    closed("1013", "slow_reader", core.closedSlowReader);
    closed("1013", "too_fast", core.closedTooFast);
    closed("1013", "address_links", core.closedAddressLinks);
    closed("1013", "too_many_links", core.closedTooManyLinks);

    out.counter("connections_total", "Connections accepted.", shell.connections);
    out.counter("accept_failures_total", "Connections that could not be accepted.", shell.acceptFailures);
    out.counter("connections_refused_total", "Connections beyond what one address may have.", shell.connectionsRefused);
    out.counter("requests_late_total", "Connections without a whole request in time.", shell.requestsLate);
    out.counter("requests_answered_total", "HTTP requests answered with no upgrade.", shell.requestsAnswered);
    out.counter("upgrades_total", "HTTP requests upgraded to WebSocket.", shell.upgrades);
    out.counter("tls_failures_total", "Connections that failed in TLS.", shell.tlsFailures);
    out.counter("bytes_received_total", "Bytes read from connections.", shell.bytesReceived);
    out.counter("bytes_sent_total", "Bytes written to connections.", shell.bytesSent);
    out.counter("writes_total", "Writes to connections.", shell.writes);
    return out.text;
}
