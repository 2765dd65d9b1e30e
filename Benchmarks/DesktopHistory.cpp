#include "DesktopHistory.h"

#include "VimbleKit/State.h"

namespace {

const char text[] =
    "Shall we meet at the lake at seven, or is that too late for you and the children? Tell me before six";
static_assert(sizeof text == 100 + 1);

const char url[] = "https://chat.example.org";

}  // namespace

DesktopHistory::DesktopHistory(std::size_t messageCount) {
    save(session.folder.path, messageCount);
    session.startConnected({listed(1), listed(2)});
}

void DesktopHistory::save(const std::filesystem::path& folder, std::size_t messageCount) {
    State state;
    state.endpoint = Endpoint(url);
    state.connection = Connection::setup;
    state.people.set(partner(), {partner(), "Ann", "🦊", false, false});
    state.conversations.update(partner(), [&](Chat& chat) {
        // Some three minutes apart, so that there are blocks of several messages, and days of several hundred.
        for (std::size_t i = 0; i < messageCount; ++i)
            chat.messages.push_back(
                {i % 3 == 0 ? keyTextOf(1) : partner(), text, {780000000.123 + static_cast<double>(i) * 171.371}});
    });
    state.save(folder);
}

void DesktopHistory::receiveOne() {
    session.server().relay(keysOf(2), PackPlaintext{.kind = {}, .name = "Ann", .emoji = "🦊", .text = text});
    session.loop.run();
}
