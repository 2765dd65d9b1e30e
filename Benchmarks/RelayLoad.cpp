#include "RelayLoad.h"

#include "Base/Check.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

enum : std::uint8_t { opBinary = 2, opClose = 8, opPing = 9, opPong = 10 };

/// Makes a client's frame, with a mask, as the protocol demands.
Bytes maskedFrame(std::uint8_t opcode, ByteView payload) {
    Bytes frame{static_cast<std::uint8_t>(0x80 | opcode)};
    if (payload.size() < 126) {
        frame.push_back(static_cast<std::uint8_t>(0x80 | payload.size()));
    } else {
        check(payload.size() < 65536, "the load sends short frames only");
        frame.push_back(0x80 | 126);
        frame.push_back(static_cast<std::uint8_t>(payload.size() >> 8));
        frame.push_back(static_cast<std::uint8_t>(payload.size()));
    }
    std::array<std::uint8_t, 4> mask;
    Nacl::randomBytes(mask);
    frame.insert(frame.end(), mask.begin(), mask.end());
    for (std::size_t i = 0; i < payload.size(); ++i) frame.push_back(payload[i] ^ mask[i % 4]);
    return frame;
}

struct Frame {
    std::uint8_t opcode;
    ByteView payload;
    std::size_t size;  // of the whole frame
};

/// The first frame in what came from a server; nothing while it is not complete.
std::optional<Frame> frontFrame(ByteView input) {
    if (input.size() < 2) return std::nullopt;
    std::size_t header = 2;
    std::uint64_t length = input[1] & 127;
    const std::size_t more = length == 126 ? 2 : length == 127 ? 8 : 0;
    if (input.size() < header + more) return std::nullopt;
    if (more > 0) length = 0;
    for (std::size_t i = 0; i < more; ++i) length = length << 8 | input[header + i];
    header += more;
    if (input.size() - header < length) return std::nullopt;
    return Frame{static_cast<std::uint8_t>(input[0] & 15), input.subspan(header, length), header + length};
}

}  // namespace

struct RelayLoad::Link {
    int descriptor = -1;
    Bytes input;
    std::size_t used = 0;  // bytes of `input` that are done with
    Bytes output;

    void write(ByteView bytes) {
        output.insert(output.end(), bytes.begin(), bytes.end());
        flush();
    }

    void flush() {
        while (!output.empty()) {
            const ssize_t count = ::send(descriptor, output.data(), output.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            if (count < 0) {
                check(errno == EAGAIN || errno == EINTR, "a link of the load broke while writing");
                return;
            }
            output.erase(output.begin(), output.begin() + count);
        }
    }

    /// Reads what has arrived. @param flags  of `recv`; 0 waits until something has
    void read(int flags) {
        input.erase(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(std::exchange(used, 0)));
        const std::size_t before = input.size();
        input.resize(before + 256 * 1024);
        const ssize_t count = ::recv(descriptor, input.data() + before, input.size() - before, flags);
        check(count > 0 || (count < 0 && errno == EAGAIN), "a link of the load was closed");
        input.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }

    /// Waits for the next message, and answers pings meanwhile.
    Bytes nextMessage() {
        for (;;) {
            while (const auto frame = frontFrame(ByteView(input).subspan(used))) {
                used += frame->size;
                if (frame->opcode == opPing)
                    write(maskedFrame(opPong, frame->payload));
                else
                    return Bytes(frame->payload.begin(), frame->payload.end());
            }
            read(0);
        }
    }

    /// Takes the frames that have arrived. @return how many of them were packs
    std::size_t takePacks() {
        read(MSG_DONTWAIT);
        std::size_t packs = 0;
        while (const auto frame = frontFrame(ByteView(input).subspan(used))) {
            used += frame->size;
            check(frame->opcode != opClose, "the server closed a link of the load");
            if (frame->opcode == opPing) write(maskedFrame(opPong, frame->payload));
            if (frame->opcode == opBinary && frame->payload.size() == packBytes) ++packs;
        }
        return packs;
    }
};

RelayLoad::RelayLoad() {
    for (std::size_t i = 0; i <= readerCount; ++i) keys.push_back(Nacl::keyPair());
    // Any bytes do for the ciphertext, since neither server opens it.
    Bytes ciphertext(packBytes - EncryptedPack::ciphertextOffset);
    Nacl::randomBytes(ciphertext);
    for (std::size_t i = 1; i <= readerCount; ++i) {
        const EncryptedPack pack(keys[0].publicKey, keys[i].publicKey, Nacl::randomNonce(), ciphertext);
        text.push_back(maskedFrame(opBinary, pack.bytes()));
    }
}

RelayLoad::~RelayLoad() {
    for (const Link& link : links) ::close(link.descriptor);
    if (poll >= 0) ::close(poll);
}

std::string RelayLoad::keyFile() const {
    std::string lines;
    for (const auto& pair : keys) lines += Nacl::hex(pair.publicKey) + "\n";
    return lines;
}

void RelayLoad::connect(std::uint16_t port, RelayLogin login) {
    poll = ::epoll_create1(EPOLL_CLOEXEC);
    for (const auto& pair : keys) {
        Link& link = links.emplace_back();
        link.descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        check(::connect(link.descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
              "the load could not connect");
        const int on = 1;
        ::setsockopt(link.descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);

        static constexpr std::string_view request =
            "GET /relay HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";
        link.write(bytesOf(request));
        std::size_t end = std::string_view::npos;
        while (end == std::string_view::npos) {
            link.read(0);
            end = textOf(link.input).find("\r\n\r\n");
        }
        check(textOf(link.input).starts_with("HTTP/1.1 101"), "the server refused the upgrade");
        link.used = end + 4;

        if (login == RelayLogin::sealedList) {
            const auto serverKey = Greeting::decoded(link.nextMessage());
            check(serverKey.has_value(), "the server did not greet");
            const Bytes list(ServerMessage::list.begin(), ServerMessage::list.end());
            const auto pack = Pack{pair.publicKey, *serverKey, {}, list}.encrypted(pair.secretKey);
            link.write(maskedFrame(opBinary, pack.bytes()));
        } else {
            link.write(maskedFrame(opBinary, pair.publicKey));
        }
        link.nextMessage();  // after the list or the router's "welcome", the server routes to this link
    }
    for (std::size_t i = 0; i < links.size(); ++i) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = i;
        ::epoll_ctl(poll, EPOLL_CTL_ADD, links[i].descriptor, &event);
    }
}

void RelayLoad::run(std::size_t texts) {
    Bytes all;
    for (const Bytes& frame : text) all.insert(all.end(), frame.begin(), frame.end());
    std::size_t sent = 0;
    std::size_t delivered = 0;
    while (delivered < texts * readerCount) {
        for (; sent < texts && sent < delivered / readerCount + textsInFlight; ++sent) links[0].write(all);
        epoll_event events[64];
        const int count = ::epoll_wait(poll, events, 64, links[0].output.empty() ? 10000 : 1);
        check(count > 0 || !links[0].output.empty(), "packs of the load did not arrive");
        for (int i = 0; i < count; ++i) delivered += links[events[i].data.u64].takePacks();
        links[0].flush();
    }
}
