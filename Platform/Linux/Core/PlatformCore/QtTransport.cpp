#include "PlatformCore/QtTransport.h"

#include "PlatformCore/QtLink.h"

#include <algorithm>
#include <utility>

namespace {

/// The owner's handle of a link. Destroying it abandons the link.
class QtTransportConnection : public TransportConnection {
public:
    explicit QtTransportConnection(std::shared_ptr<QtLink> link) : link(std::move(link)) {}
    ~QtTransportConnection() override { link->abandon(); }

    void start(Handlers handlers) override { link->start(std::move(handlers)); }
    TransportState state() const override { return link->state(); }
    void send(TransportMessage message, QtLink::Completion completion) override {
        link->send(std::move(message), std::move(completion));
    }
    void cancel() override { link->cancel(); }

private:
    std::shared_ptr<QtLink> link;  // posted work shares it during a call
};

}  // namespace

/// Tells each trouble once.
struct QtTransport::Trouble {
    std::function<void(std::string)> tell;
    std::string last;

    void happened(const std::string& text) {
        if (text == last) return;
        last = text;
        if (tell) tell(text);
    }
};

/// Counts the answers of the links that were ready when the question was asked.
class QtTransport::Drain {
public:
    std::function<void(bool)> done;  // empty once called
    std::size_t awaited = 0;
    std::unique_ptr<Timer> timer;

    void end(bool isDrained) {
        timer.reset();
        if (const auto call = std::exchange(done, {})) call(isDrained);
    }
};

QtTransport::QtTransport(MainLoop& loop) : loop(loop), trouble(std::make_shared<Trouble>()) {}

QtTransport::~QtTransport() = default;

std::unique_ptr<TransportConnection> QtTransport::connection(const TransportParameters& parameters) {
    auto link = std::make_shared<QtLink>(
        loop, parameters,
        QtLink::Troubles{[trouble = trouble](const std::string& text) { trouble->happened(text); },
                         [trouble = trouble] { trouble->last.clear(); }});
    std::erase_if(links, [](const auto& known) { return known.expired(); });
    links.push_back(link);
    return std::make_unique<QtTransportConnection>(std::move(link));
}

void QtTransport::onTrouble(std::function<void(std::string)> tell) { trouble->tell = std::move(tell); }

void QtTransport::drain(Seconds atMost, std::function<void(bool)> done) {
    std::erase_if(drains, [](const auto& known) { return !known->done; });
    auto drain = std::make_shared<Drain>();
    drains.push_back(drain);
    drain->done = std::move(done);
    const std::weak_ptr weak(drain);
    for (const auto& known : links) {
        const auto link = known.lock();
        if (!link || link->state() != TransportState::ready) continue;
        ++drain->awaited;
        link->confirm([weak](bool isConfirmed) {
            const auto asked = weak.lock();
            if (asked && (--asked->awaited == 0 || !isConfirmed)) asked->end(isConfirmed);
        });
    }
    if (drain->awaited == 0) {
        loop.post([weak] {
            if (const auto asked = weak.lock()) asked->end(false);
        });
        return;
    }
    drain->timer = std::make_unique<Timer>(loop, atMost, [weak] {
        if (const auto asked = weak.lock()) asked->end(false);
    });
}
