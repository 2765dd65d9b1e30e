#pragma once

#include "Base/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

/// Reads the frames that a WebSocket client sends (RFC 6455, section 5), without any input or output.
///
/// It works in place, takes many frames a call, and copies only messages in fragments, because reading is a
/// good part of the cost of a relayed pack. It knows no extensions, and refuses text messages, since all our
/// messages are binary.
class WebsocketReader {
public:
    /// Receives what was read. The bytes are valid during the call only. A result of false stops the reading.
    class Sink {
    public:
        virtual bool onMessage(ByteView message) = 0;
        virtual bool onPing(ByteView payload) = 0;
        virtual bool onPong(ByteView payload) = 0;
        /// @param code  of the close frame; nothing where it had none
        virtual void onClose(std::optional<std::uint16_t> code) = 0;

    protected:
        ~Sink() = default;
    };

    /// @param maxMessage  a frame or a message of more bytes is an error 1009, as soon as it is announced
    explicit WebsocketReader(std::size_t maxMessage) : maxMessage(maxMessage) {}

    /// Reads whole frames from the front of `bytes`, and alters them (takes their mask off).
    /// @return how many bytes were used: pass the rest again when more has arrived behind it
    std::size_t read(std::span<std::uint8_t> bytes, Sink& sink);

    /// The close code for the client's error; nothing while there is none. After an error nothing more is read.
    std::optional<std::uint16_t> error() const { return code; }

private:
    struct Header;
    bool readHeader(ByteView bytes, Header& header);
    bool handle(const Header& header, ByteView payload, Sink& sink);
    bool handleClose(ByteView payload, Sink& sink);
    bool fail(std::uint16_t closeCode);

    std::size_t maxMessage;
    bool isInMessage = false;  // the last fragment of `message` has not arrived
    Bytes message;             // the fragments so far
    std::optional<std::uint16_t> code;
};

/// The frames that a server sends: never masked, never in fragments.
namespace WebsocketWriter {

void appendMessage(Bytes& out, ByteView message);
void appendPing(Bytes& out, std::uint64_t payload);
void appendPong(Bytes& out, ByteView payload);
/// @param reason  cut to what fits in a close frame
void appendClose(Bytes& out, std::uint16_t code, std::string_view reason);

}  // namespace WebsocketWriter
