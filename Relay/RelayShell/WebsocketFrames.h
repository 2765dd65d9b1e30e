#pragma once

#include "Base/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

/// Reads the frames that a WebSocket client sends (RFC 6455, section 5), without any input or output.
///
/// Works in place, many frames a call, and copies only what comes in fragments: reading is a good part
/// of what a relayed pack costs. No extensions. Text messages are refused, since all our messages are
/// binary.
class WebsocketReader {
public:
    /// What was read. The bytes are borrowed for the call. Each answers whether to go on.
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
    /// @return how many bytes were used: the rest is to be given again, with more behind it
    std::size_t read(std::span<std::uint8_t> bytes, Sink& sink);

    /// The close code that the client has earned; nothing while all is well. Then nothing more is read.
    std::optional<std::uint16_t> error() const { return code; }

private:
    struct Header;
    bool readHeader(ByteView bytes, Header& header);
    bool handle(const Header& header, ByteView payload, Sink& sink);
    bool handleClose(ByteView payload, Sink& sink);
    bool fail(std::uint16_t closeCode);

    std::size_t maxMessage;
    bool isInMessage = false;  // its last fragment is still to come
    Bytes message;             // its fragments so far
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
