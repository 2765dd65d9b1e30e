#include "StateKit/Websocket.h"

#include "StateKit/Device.h"
#include "StateKit/Log.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace {

const Log log("StateKit", "Websocket");

/// Whether the URL's scheme asks for TLS: any does but "ws" and "http".
bool usesTls(std::string_view url) {
    std::string scheme(url.substr(0, std::min(url.find(':'), url.size())));
    // Schemes may be written in capitals.
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return scheme != "ws" && scheme != "http";
}

std::string reason(const std::optional<TransportError>& error) { return error ? error->text : "unknown error"; }

}  // namespace

Websocket::Websocket(Transport& transport, const Host& host, std::string url)
    : url(std::move(url)), transport(transport), host(host) {}

Websocket::~Websocket() {
    if (connection) connection->cancel();
}

void Websocket::connect(const std::optional<std::string>& token) {
    if (connection) connection->cancel();
    _isConnected = false;
    closeCode.reset();

    TransportParameters parameters;
    parameters.url = url;
    parameters.usesTls = usesTls(url);
    if (token) parameters.headers.emplace_back("Authorization", "Token " + *token);
    parameters.headers.emplace_back("User-Agent", Device::userAgent(host));
    log.info("Connecting to " + url);

    // A connection that was replaced may still report something: its number tells it from the present one.
    const std::uint64_t number = ++connectionNumber;
    const auto mine = [weak = Weak<Websocket>(this), number]() -> Websocket* {
        Websocket* websocket = weak.get();
        return websocket && websocket->connectionNumber == number ? websocket : nullptr;
    };
    connection = transport.connection(parameters);
    connection->start({.stateChanged =
                           [mine](TransportState state, const std::optional<TransportError>& error) {
                               if (Websocket* websocket = mine()) websocket->stateChanged(state, error);
                           },
                       .received =
                           [mine](const TransportMessage& message) {
                               if (Websocket* websocket = mine()) websocket->received(message);
                           },
                       .receiveFailed =
                           [mine](const TransportError& error) {
                               Websocket* websocket = mine();
                               if (!websocket) return;
                               log.error("NW Disconnected: " + error.text);
                               websocket->disconnected(error, websocket->closeCode);
                           }});
}

void Websocket::close(CloseCode code) {
    if (!connection) return;
    if (connection->state() != TransportState::ready) {
        connection->cancel();
        return;
    }
    connection->send({.opcode = Opcode::close, .content = {}, .closeCode = code},
                     [weak = Weak<Websocket>(this), number = connectionNumber](const auto&) {
                         Websocket* websocket = weak.get();
                         if (websocket && websocket->connectionNumber == number) websocket->connection->cancel();
                     });
}

void Websocket::send(Bytes bytes) { send(Opcode::binary, std::move(bytes)); }

void Websocket::send(std::string_view text) { send(Opcode::text, Bytes(text.begin(), text.end())); }

void Websocket::send(Opcode opcode, Bytes content) {
    if (!connection || connection->state() != TransportState::ready) return;
    const std::size_t size = content.size();
    connection->send({.opcode = opcode, .content = std::move(content), .closeCode = {}},
                     [size](const std::optional<TransportError>& error) {
                         if (error) log.error("Failed to send " + std::to_string(size) + " bytes: " + error->text);
                     });
}

void Websocket::stateChanged(TransportState state, const std::optional<TransportError>& error) {
    switch (state) {
        case TransportState::setup: log.debug("NW Setup"); return;
        case TransportState::waiting: log.error("NW Waiting: " + reason(error)); return;
        case TransportState::preparing: log.debug("NW Preparing"); return;
        case TransportState::ready:
            log.info("NW Connected");
            _isConnected = true;
            if (WebsocketDelegate* receiver = delegate.get()) receiver->websocketDidConnect(*this);
            return;
        case TransportState::failed:
            log.error("NW Failed: " + reason(error));
            disconnected(error, closeCode);
            return;
        case TransportState::cancelled:
            log.info("NW Cancelled");
            disconnected({}, {});
            return;
    }
}

void Websocket::received(const TransportMessage& message) {
    switch (message.opcode) {
        case Opcode::continuation:
        case Opcode::text:
        case Opcode::binary:
            if (message.content.empty()) return;
            if (WebsocketDelegate* receiver = delegate.get()) receiver->websocketDidReceive(*this, message.content);
            return;
        case Opcode::close: closeCode = message.closeCode; return;
        case Opcode::ping:
        case Opcode::pong: return;
    }
    log.error("Unknown opcode " + std::to_string(static_cast<int>(message.opcode)));
}

void Websocket::disconnected(const std::optional<TransportError>& error, std::optional<CloseCode> code) {
    if (!_isConnected) return;
    _isConnected = false;
    if (WebsocketDelegate* receiver = delegate.get()) receiver->websocketDidDisconnect(*this, error, code);
}
