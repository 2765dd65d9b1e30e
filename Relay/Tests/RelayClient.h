#pragma once

#include "RelayProcess.h"
#include "RelayWorld.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A client over a real socket, with the WebSocket of another library than the relay's own.
///
/// It answers pings only while it reads, so a client that does not read proves nothing. Only the source file
/// includes the library, since it takes longer to compile than all the tests.
class RelayClient {
public:
    enum class Security { none, tls };

    /// Connects. The certificate is not checked.
    RelayClient(const Somebody& owner, std::uint16_t port, Security security = Security::none);
    ~RelayClient();

    /// Shakes hands, and says "list" in answer to the greeting.
    bool join() { return upgrade() && list(); }
    bool upgrade(const std::string& path = "/relay");
    bool list();

    bool send(const Bytes& frame);
    bool say(const std::string& command) { return send(RelayWorld::packOf(owner, *serverKey, command)); }
    bool write(const Somebody& target, const std::string& text) {
        return send(RelayWorld::packOf(owner, target.key(), text));
    }
    /// From now on splits each message into frames of so many bytes; 0: one frame.
    void fragment(std::size_t bytes);

    /// The next message; nothing when the link ends, or none comes in time.
    std::optional<Bytes> read();
    /// Reads and sorts messages until the condition holds. @return false when the link ended first
    bool readUntil(const std::function<bool()>& holds);
    bool readTexts(std::size_t count) {
        return readUntil([&] { return texts.size() >= count; });
    }
    bool knows(const Somebody& person) const;
    /// Reads until the link ends. @return the close code; 0 without one
    int closeCode();
    /// The code that the relay has closed with; 0 without one.
    int reasonCode() const;
    /// The common name in the relay's certificate.
    std::string certificateName() const;
    /// Why the last operation failed, in words.
    std::string error() const;

    const Somebody& owner;
    std::optional<PublicKey> serverKey;
    std::vector<std::string> texts;
    std::vector<std::vector<MetaPerson>> lists;
    std::vector<std::string> answers;

private:
    class Link;
    template <class Stream>
    class LinkOver;
    std::unique_ptr<Link> link;
};
