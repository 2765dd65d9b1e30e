#pragma once

#include "Base/Bytes.h"
#include "TweetNacl/Nacl.h"

#include <cstdint>
#include <string>
#include <vector>

/// How a link of the load makes itself known to the server.
enum class RelayLogin {
    sealedList,  // the relay: a greeting, then the command "list" in a pack
    bareKey      // the plain router: the key alone
};

/// A group of people on this machine who read everything, and one who writes to all of them: sends texts
/// as fast as they are delivered, sixteen of them in flight.
///
/// Blocking; one thread. Every failure ends the process with a line: it is a measurement, not a service.
class RelayLoad {
public:
    static constexpr std::size_t readerCount = 100;
    static constexpr std::size_t packBytes = 300;
    static constexpr std::size_t textsInFlight = 16;

    RelayLoad();
    ~RelayLoad();
    RelayLoad(const RelayLoad&) = delete;
    RelayLoad& operator=(const RelayLoad&) = delete;

    /// The public keys of all, in text form, a line each.
    std::string keyFile() const;

    void connect(std::uint16_t port, RelayLogin login);

    /// Sends so many texts and returns when all packs have come to all readers.
    void run(std::size_t texts);

private:
    struct Link;

    std::vector<Nacl::KeyPair> keys;  // the author first
    std::vector<Link> links;          // likewise
    std::vector<Bytes> text;          // one frame for each reader
    int poll = -1;
};
