#pragma once

#include "StateKit/Transport.h"

#include <memory>
#include <utility>

/// A transport that is always ready and drops what is sent. The benchmark delivers frames through it.
class MemoryTransport : public Transport {
public:
    std::unique_ptr<TransportConnection> connection(const TransportParameters&) override {
        auto made = std::make_unique<Connection>();
        current = made.get();
        return made;
    }

    void open() { current->handlers.stateChanged(TransportState::ready, {}); }
    void deliver(Bytes frame) {
        TransportMessage message;
        message.content = std::move(frame);
        current->handlers.received(std::move(message));
    }

    std::size_t sentBytes() const { return current->sentBytes; }

private:
    struct Connection : TransportConnection {
        void start(Handlers newHandlers) override { handlers = std::move(newHandlers); }
        TransportState state() const override { return TransportState::ready; }
        void send(TransportMessage message, std::function<void(const std::optional<TransportError>&)>) override {
            sentBytes += message.content.size();
        }
        void cancel() override {}

        Handlers handlers;
        std::size_t sentBytes = 0;
    };

    Connection* current = nullptr;
};
