// Reads what strangers send to the relay: the HTTP request, and the WebSocket frames after it.
//
// The first byte chooses which. A request is given in growing parts, as the network may deliver it. Frames are
// given in parts too, and the result is compared with that of a simple reader that takes all bytes at once.

#include "FuzzSupport/FuzzInput.h"

#include "Base/Check.h"
#include "RelayShell/HttpFront.h"
#include "RelayShell/WebsocketFrames.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t maxHeader = 300;  // small, so that the fuzzer reaches it
constexpr std::size_t maxMessage = 1000;

// ---- the request

void checkVerdict(const HttpVerdict& verdict, std::size_t received) {
    const auto status = std::string_view(verdict.response).substr(0, 13);
    switch (verdict.kind) {
        case HttpVerdict::Kind::upgrade:
            check(status == "HTTP/1.1 101 " && verdict.response.ends_with("\r\n\r\n"),
                  "an upgrade is answered otherwise");
            check(verdict.used > 0 && verdict.used <= received && verdict.used <= maxHeader,
                  "the frames begin where there are none");
            break;
        case HttpVerdict::Kind::answer:
            check(status.starts_with("HTTP/1.1 4"), "a bad request gets a good answer");
            check(verdict.response.find("\r\nContent-Length: ") != std::string::npos, "an answer has no length");
            break;
        case HttpVerdict::Kind::healthz:
        case HttpVerdict::Kind::metrics: break;
    }
    check(verdict.forwardedFor.size() <= 64, "an address is too long");
    check(verdict.forwardedFor.find_first_of("\r\n") == std::string::npos, "an address has line ends");
}

void judgeInParts(ByteView request) {
    std::optional<HttpVerdict> before;
    for (std::size_t size = 0; size <= std::min<std::size_t>(request.size(), 2 * maxHeader); ++size) {
        // A copy of exactly this size, so that the sanitizer notices if anything behind it is read.
        const Bytes received(request.begin(), request.begin() + static_cast<std::ptrdiff_t>(size));
        const auto verdict = HttpFront::judge(received, maxHeader);
        check(verdict || size <= maxHeader, "a request without end is waited for");
        if (verdict) checkVerdict(*verdict, size);
        if (before) {
            check(verdict.has_value(), "a request was complete, and is not any more");
            check(verdict->kind == before->kind, "what stands behind a request changes what it asks for");
            if (before->kind == HttpVerdict::Kind::upgrade)
                check(verdict->used == before->used && verdict->response == before->response,
                      "what stands behind an upgrade changes it");
        }
        before = verdict;
    }
}

// ---- the frames

/// One thing that a reader reports.
struct Told {
    enum class Kind { message, ping, pong, close } kind;
    Bytes payload;
    std::optional<std::uint16_t> code;

    bool operator==(const Told&) const = default;
};

class Listener final : public WebsocketReader::Sink {
public:
    std::vector<Told> told;

    bool onMessage(ByteView message) override { return tell(Told::Kind::message, message); }
    bool onPing(ByteView payload) override { return tell(Told::Kind::ping, payload); }
    bool onPong(ByteView payload) override { return tell(Told::Kind::pong, payload); }
    void onClose(std::optional<std::uint16_t> code) override {
        check(!isClosed, "two close frames were told");
        isClosed = true;
        told.push_back({Told::Kind::close, {}, code});
    }

    bool isClosed = false;

private:
    bool tell(Told::Kind kind, ByteView payload) {
        check(!isClosed, "something was told behind the close frame");
        told.push_back({kind, Bytes(payload.begin(), payload.end()), {}});
        return true;
    }
};

/// What all the bytes mean, frame by frame. Source: RFC 6455, section 5. The relay also refuses text frames, and
/// messages above `maxMessage`.
struct Meaning {
    std::vector<Told> told;
    std::optional<std::uint16_t> error;
};

Meaning meaningOf(ByteView bytes) {
    Meaning meaning;
    std::optional<Bytes> message;
    const auto wrong = [&](std::uint16_t code) {
        meaning.error = code;
        return meaning;
    };
    while (bytes.size() >= 2) {
        const bool isFinal = (bytes[0] & 0x80) != 0;
        const unsigned opcode = bytes[0] & 15;
        const bool isControl = opcode >= 8;
        if ((bytes[0] & 0x70) || !(bytes[1] & 0x80)) return wrong(1002);
        std::uint64_t size = bytes[1] & 0x7F;
        if (isControl && (!isFinal || size > 125)) return wrong(1002);
        if (opcode == 1) return wrong(1003);
        if (opcode != 0 && opcode != 2 && opcode != 8 && opcode != 9 && opcode != 10) return wrong(1002);
        if ((opcode == 0) != message.has_value() && !isControl) return wrong(1002);
        std::size_t header = 2;
        if (size >= 126) {
            const std::size_t more = size == 126 ? 2 : 8;
            if (bytes.size() < 2 + more) break;
            const std::uint64_t least = size == 126 ? 126 : 65536;
            size = 0;
            for (std::size_t i = 0; i < more; ++i) size = size << 8 | bytes[2 + i];
            if (size < least) return wrong(1002);
            header += more;
        }
        if (size > maxMessage) return wrong(1009);
        if (!isControl && message && message->size() + size > maxMessage) return wrong(1009);
        if (bytes.size() < header + 4 + size) break;
        Bytes payload;
        for (std::size_t i = 0; i < size; ++i) payload.push_back(bytes[header + 4 + i] ^ bytes[header + i % 4]);
        bytes = bytes.subspan(header + 4 + size);

        if (opcode == 8) {
            if (size == 1) return wrong(1002);
            std::optional<std::uint16_t> code;
            if (size >= 2) {
                code = static_cast<std::uint16_t>(payload[0] << 8 | payload[1]);
                const bool isKnown = *code >= 1000 && *code <= 1014 && *code != 1004 && *code != 1005 && *code != 1006;
                if (!isKnown && (*code < 3000 || *code > 4999)) return wrong(1002);
            }
            meaning.told.push_back({Told::Kind::close, {}, code});
            return meaning;
        }
        if (opcode == 9) meaning.told.push_back({Told::Kind::ping, payload, {}});
        if (opcode == 10) meaning.told.push_back({Told::Kind::pong, payload, {}});
        if (isControl) continue;
        if (!message) message.emplace();
        message->insert(message->end(), payload.begin(), payload.end());
        if (!isFinal) continue;
        meaning.told.push_back({Told::Kind::message, *message, {}});
        message.reset();
    }
    return meaning;
}

/// Reads as the server does: the bytes that were not used are given again, with more behind them.
void readInParts(ByteView bytes, std::size_t part) {
    WebsocketReader reader(maxMessage);
    Listener listener;
    Bytes waiting;
    for (std::size_t at = 0; at < bytes.size() && !reader.error() && !listener.isClosed; at += part) {
        const ByteView arrived = bytes.subspan(at, std::min(part, bytes.size() - at));
        waiting.insert(waiting.end(), arrived.begin(), arrived.end());
        Bytes exact = waiting;  // a copy of exactly this size, so that reading behind it is noticed
        const std::size_t used = reader.read(exact, listener);
        check(used <= exact.size(), "more was used than there is");
        waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(used));
        check(reader.error() || listener.isClosed || waiting.size() <= maxMessage + 14, "too much is kept waiting");
    }
    const Meaning meaning = meaningOf(bytes);
    check(listener.told == meaning.told, "the frames were read as something else");
    check(reader.error() == meaning.error, "the frames have earned another close code");
}

/// Checks that the frames we write are well-formed. They have no mask, as a server's, so they are given one of zeros
/// to be read as a client's.
void writeAndRead(FuzzInput& input) {
    const auto masked = [](const Bytes& frame) {
        Bytes result = frame;
        const std::size_t header = frame[1] == 127 ? 10 : frame[1] == 126 ? 4 : 2;
        check((frame[1] & 0x80) == 0, "a server's frame is masked");
        result[1] |= 0x80;
        result.insert(result.begin() + static_cast<std::ptrdiff_t>(header), 4, 0);
        return result;
    };
    const std::uint8_t kind = input.byte();
    const std::uint16_t code = static_cast<std::uint16_t>(3000 + input.byte());
    const ByteView rest = input.rest();
    Bytes payload(rest.begin(), rest.end());
    Bytes frame;
    Told expected{Told::Kind::message, {}, {}};
    switch (kind % 4) {
        case 0:
            payload.resize(std::min(payload.size(), maxMessage));
            WebsocketWriter::appendMessage(frame, payload);
            expected = {Told::Kind::message, payload, {}};
            break;
        case 1:
            WebsocketWriter::appendPing(frame, 0x0102030405060708);
            expected = {Told::Kind::ping, {1, 2, 3, 4, 5, 6, 7, 8}, {}};
            break;
        case 2:
            payload.resize(std::min<std::size_t>(payload.size(), 125));
            WebsocketWriter::appendPong(frame, payload);
            expected = {Told::Kind::pong, payload, {}};
            break;
        case 3:
            WebsocketWriter::appendClose(frame, code, textOf(payload));
            expected = {Told::Kind::close, {}, code};
            break;
    }
    Bytes bytes = masked(frame);
    WebsocketReader reader(maxMessage);
    Listener listener;
    check(reader.read(bytes, listener) == bytes.size() && !reader.error(), "our own frame is not read whole");
    check(listener.told == std::vector{expected}, "our own frame is read as something else");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    switch (input.below(3)) {
        case 0: judgeInParts(input.rest()); break;
        case 1: {
            const std::size_t part = input.byte() + 1;
            const ByteView bytes = input.rest();
            readInParts(bytes, part);
            readInParts(bytes, bytes.size() + 1);
            break;
        }
        case 2: writeAndRead(input); break;
    }
    return 0;
}
