#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/Transport.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// One connection of a `FakeTransport`, seen from the other side: the test plays the network and the
/// server. It outlives the connection, so that a test can still look at what was sent.
///
/// The connection's owner hears at once what the test does. What the owner does is answered by the loop,
/// as the seam demands. Each operation of the network's and the server's part returns whether the owner
/// heard it: false once the connection is destroyed or has ended.
class FakeLink {
public:
    /// How sending a message ends. stay: no completion runs until `completeSends`.
    enum class Sends { complete, stay, fail };

    const TransportParameters parameters;
    std::vector<TransportMessage> sent;  // in order, also those whose sending "fails"
    Sends sends = Sends::complete;
    bool isStarted = false;
    bool isCancelled = false;  // by its owner
    bool isDestroyed = false;  // by its owner

    FakeLink(MainLoop& loop, TransportParameters parameters) : parameters(std::move(parameters)), loop(loop) {}

    TransportState state() const { return _state; }
    /// Whether the connection is started, has not ended, and is not destroyed.
    bool isOpen() const { return handlers && !isOver(); }

    // ---- the network's and the server's part

    bool prepare() { return changeState(TransportState::preparing, {}); }
    bool wait(std::string error = "refused") {
        return changeState(TransportState::waiting, TransportError{std::move(error)});
    }
    /// Completes the opening handshake.
    bool ready() { return changeState(TransportState::ready, {}); }
    bool fail(std::string error = "failed") {
        return changeState(TransportState::failed, TransportError{std::move(error)});
    }

    bool deliver(Opcode opcode, Bytes content) {
        return deliver({.opcode = opcode, .content = std::move(content), .closeCode = {}});
    }
    bool deliver(ByteView binary) { return deliver(Opcode::binary, Bytes(binary.begin(), binary.end())); }
    bool deliver(std::string_view text) { return deliver(Opcode::text, Bytes(text.begin(), text.end())); }
    bool deliver(TransportMessage message) {
        return tell([&](const TransportConnection::Handlers& told) { told.received(std::move(message)); });
    }

    /// A close frame, which is not yet the end of the link.
    bool deliverClose(std::optional<CloseCode> code) {
        return deliver({.opcode = Opcode::close, .content = {}, .closeCode = code});
    }
    /// The end of the link, as a failed receive.
    bool end(std::string error = "end of stream") {
        return tell([&](const TransportConnection::Handlers& told) {
            // The state stays "ready": only the reading side has ended.
            told.receiveFailed(TransportError{std::move(error)});
        });
    }
    /// A close frame and the end of the link, as when a server closes in good order.
    bool close(std::optional<CloseCode> code) {
        const bool wasHeard = deliverClose(code);
        end("closed by the server");
        return wasHeard;
    }

    /// Runs the completions that were kept back, in order.
    void completeSends(const std::optional<TransportError>& error = {}) {
        while (!kept.empty() && !isDestroyed) {
            const auto completion = std::move(kept.front());
            kept.pop_front();
            completion(error);
        }
    }

    /// The binary and text messages that were sent since the last call.
    std::vector<Bytes> takeSent() {
        std::vector<Bytes> contents;
        for (TransportMessage& message : std::exchange(sent, {}))
            if (message.opcode == Opcode::binary || message.opcode == Opcode::text)
                contents.push_back(std::move(message.content));
        return contents;
    }

    /// The value of a header of the opening handshake.
    std::optional<std::string> header(std::string_view name) const {
        for (const auto& [key, value] : parameters.headers)
            if (key == name) return value;
        return std::nullopt;
    }

private:
    friend class FakeConnection;

    bool isOver() const { return _state == TransportState::failed || _state == TransportState::cancelled; }

    bool changeState(TransportState state, const std::optional<TransportError>& error) {
        if (!isOpen()) return false;
        _state = state;
        return tell([&](const TransportConnection::Handlers& told) { told.stateChanged(state, error); }, true);
    }

    template <class Report>
    bool tell(Report&& report, bool alsoWhenOver = false) {
        // A share of our own, since the owner may destroy the connection inside the report.
        const auto told = handlers;
        if (!told || (isOver() && !alsoWhenOver)) return false;
        report(*told);
        return true;
    }

    MainLoop& loop;
    TransportState _state = TransportState::setup;
    std::shared_ptr<const TransportConnection::Handlers> handlers;  // from the start to the destruction
    std::deque<std::function<void(const std::optional<TransportError>&)>> kept;
};

/// The owner's side of a `FakeLink`.
class FakeConnection : public TransportConnection {
public:
    FakeConnection(std::shared_ptr<FakeLink> link, std::function<void(FakeLink&)> onStart)
        : link(std::move(link)), onStart(std::move(onStart)) {}
    ~FakeConnection() override {
        link->isDestroyed = true;
        link->handlers = nullptr;
        link->kept.clear();
    }

    void start(Handlers handlers) override {
        link->isStarted = true;
        link->handlers = std::make_shared<const Handlers>(std::move(handlers));
        if (!onStart) return;
        link->loop.post([link = link, onStart = onStart] {
            if (link->isOpen()) onStart(*link);
        });
    }

    TransportState state() const override { return link->state(); }

    void send(TransportMessage message, std::function<void(const std::optional<TransportError>&)> completion) override {
        link->sent.push_back(std::move(message));
        if (!completion) return;
        switch (link->sends) {
            case FakeLink::Sends::stay: link->kept.push_back(std::move(completion)); return;
            case FakeLink::Sends::complete: complete(std::move(completion), {}); return;
            case FakeLink::Sends::fail: complete(std::move(completion), TransportError{"broken pipe"}); return;
        }
    }

    void cancel() override {
        link->isCancelled = true;
        if (link->isOver()) return;
        link->_state = TransportState::cancelled;
        link->loop.post([link = link] {
            link->tell([](const Handlers& told) { told.stateChanged(TransportState::cancelled, {}); }, true);
        });
    }

private:
    void complete(std::function<void(const std::optional<TransportError>&)> completion,
                  std::optional<TransportError> error) {
        link->loop.post([link = link, completion = std::move(completion), error] {
            if (!link->isDestroyed) completion(error);
        });
    }

    std::shared_ptr<FakeLink> link;
    std::function<void(FakeLink&)> onStart;
};

/// A network whose far end is played by the test.
class FakeTransport : public Transport {
public:
    /// @param loop  must outlive the transport and its connections
    explicit FakeTransport(MainLoop& loop) : loop(loop) {}

    std::unique_ptr<TransportConnection> connection(const TransportParameters& parameters) override {
        links.push_back(std::make_shared<FakeLink>(loop, parameters));
        return std::make_unique<FakeConnection>(links.back(), onStart);
    }

    /// The latest connection. Only after there has been one.
    FakeLink& last() const { return *links.back(); }

    /// Every connection that was ever asked for, in order.
    std::vector<std::shared_ptr<FakeLink>> links;

    /// Called by the loop for each connection that was started, for instance to make it ready.
    std::function<void(FakeLink&)> onStart;

private:
    MainLoop& loop;
};
