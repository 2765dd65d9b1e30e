#include "RelayShell/WebsocketFrames.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

enum Opcode : std::uint8_t { continuation = 0, text = 1, binary = 2, closing = 8, ping = 9, pong = 10 };

constexpr std::uint8_t finalBit = 0x80;
constexpr std::uint8_t reservedBits = 0x70;
constexpr std::uint8_t maskBit = 0x80;
constexpr std::size_t maskSize = 4;
constexpr std::size_t maxControl = 125;

constexpr std::uint16_t protocolError = 1002;
constexpr std::uint16_t unsupportedData = 1003;
constexpr std::uint16_t messageTooBig = 1009;

std::uint64_t bigEndian(ByteView bytes) {
    std::uint64_t value = 0;
    for (const std::uint8_t byte : bytes) value = value << 8 | byte;
    return value;
}

void unmask(std::span<std::uint8_t> payload, const std::uint8_t* mask) {
    std::uint64_t wide;
    std::memcpy(&wide, mask, maskSize);
    std::memcpy(reinterpret_cast<std::uint8_t*>(&wide) + maskSize, mask, maskSize);
    std::size_t at = 0;
    for (; at + sizeof wide <= payload.size(); at += sizeof wide) {
        std::uint64_t word;
        std::memcpy(&word, payload.data() + at, sizeof word);
        word ^= wide;
        std::memcpy(payload.data() + at, &word, sizeof word);
    }
    for (; at < payload.size(); ++at) payload[at] ^= mask[at % maskSize];
}

/// What a client may say in a close frame (RFC 6455, section 7.4).
bool isCloseCode(std::uint64_t code) {
    if (code >= 3000) return code < 5000;
    return code >= 1000 && code <= 1014 && code != 1004 && code != 1005 && code != 1006;
}

void appendHeader(Bytes& out, Opcode opcode, std::size_t size) {
    std::uint8_t header[10];
    std::size_t length = 2;
    header[0] = finalBit | opcode;
    const auto put = [&](std::uint8_t marker, int bytes) {
        header[1] = marker;
        for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
            header[length++] = static_cast<std::uint8_t>(std::uint64_t{size} >> shift);
    };
    if (size <= maxControl)
        header[1] = static_cast<std::uint8_t>(size);
    else if (size <= 0xffff)
        put(126, 2);
    else
        put(127, 8);
    out.insert(out.end(), header, header + length);
}

}  // namespace

struct WebsocketReader::Header {
    std::uint8_t opcode = 0;
    bool isFinal = false;
    std::size_t size = 0;  // of the header, mask included
    std::uint64_t payload = 0;

    bool isControl() const { return (opcode & 0x8) != 0; }
};

std::size_t WebsocketReader::read(std::span<std::uint8_t> bytes, Sink& sink) {
    std::size_t used = 0;
    while (!code) {
        const auto rest = bytes.subspan(used);
        Header header;
        if (!readHeader(rest, header) || rest.size() - header.size < header.payload) break;
        const auto payload = rest.subspan(header.size, header.payload);
        unmask(payload, rest.data() + header.size - maskSize);
        used += header.size + payload.size();
        if (!handle(header, payload, sink)) break;
    }
    return used;
}

bool WebsocketReader::readHeader(ByteView bytes, Header& header) {
    if (bytes.size() < 2) return false;
    header.opcode = bytes[0] & 0x0f;
    header.isFinal = (bytes[0] & finalBit) != 0;
    if ((bytes[0] & reservedBits) != 0 || (bytes[1] & maskBit) == 0) return fail(protocolError);
    std::size_t lengthSize = 0;
    header.payload = bytes[1] & 0x7f;
    if (header.payload == 126) lengthSize = 2;
    if (header.payload == 127) lengthSize = 8;
    header.size = 2 + lengthSize + maskSize;
    if (header.isControl() && (!header.isFinal || header.payload > maxControl)) return fail(protocolError);
    switch (header.opcode) {
        case continuation:
            if (!isInMessage) return fail(protocolError);
            break;
        case text: return fail(unsupportedData);
        case binary:
            if (isInMessage) return fail(protocolError);
            break;
        case closing:
        case ping:
        case pong: break;
        default: return fail(protocolError);
    }
    if (bytes.size() < 2 + lengthSize) return false;
    if (lengthSize > 0) {
        header.payload = bigEndian(bytes.subspan(2, lengthSize));
        if (header.payload <= (lengthSize == 2 ? maxControl : 0xffff)) return fail(protocolError);
    }
    // A control frame may come between the fragments of a message, but does not count towards its size.
    const std::size_t before = header.isControl() ? 0 : message.size();
    if (header.payload > maxMessage || before + header.payload > maxMessage) return fail(messageTooBig);
    return bytes.size() >= header.size;
}

bool WebsocketReader::handle(const Header& header, ByteView payload, Sink& sink) {
    switch (header.opcode) {
        case closing: return handleClose(payload, sink);
        case ping: return sink.onPing(payload);
        case pong: return sink.onPong(payload);
    }
    if (header.isFinal && !isInMessage) return sink.onMessage(payload);
    message.insert(message.end(), payload.begin(), payload.end());
    isInMessage = !header.isFinal;
    if (isInMessage) return true;
    const Bytes whole = std::exchange(message, {});
    return sink.onMessage(whole);
}

bool WebsocketReader::handleClose(ByteView payload, Sink& sink) {
    if (payload.size() == 1) return fail(protocolError);
    std::optional<std::uint16_t> said;
    if (payload.size() >= 2) {
        const std::uint64_t value = bigEndian(payload.first(2));
        if (!isCloseCode(value)) return fail(protocolError);
        said = static_cast<std::uint16_t>(value);
    }
    sink.onClose(said);
    return false;
}

bool WebsocketReader::fail(std::uint16_t closeCode) {
    code = closeCode;
    return false;
}

void WebsocketWriter::appendMessage(Bytes& out, ByteView message) {
    appendHeader(out, binary, message.size());
    out.insert(out.end(), message.begin(), message.end());
}

void WebsocketWriter::appendPing(Bytes& out, std::uint64_t payload) {
    appendHeader(out, ping, sizeof payload);
    for (int shift = 56; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(payload >> shift));
}

void WebsocketWriter::appendPong(Bytes& out, ByteView payload) {
    appendHeader(out, pong, payload.size());
    out.insert(out.end(), payload.begin(), payload.end());
}

void WebsocketWriter::appendClose(Bytes& out, std::uint16_t code, std::string_view reason) {
    reason = reason.substr(0, maxControl - 2);
    appendHeader(out, closing, 2 + reason.size());
    out.push_back(static_cast<std::uint8_t>(code >> 8));
    out.push_back(static_cast<std::uint8_t>(code));
    out.insert(out.end(), reason.begin(), reason.end());
}
