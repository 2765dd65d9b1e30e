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

/// The load of a relay benchmark: an author who sends each text to a group of readers, as fast as the texts
/// are delivered, with sixteen of them in flight.
///
/// Its operations block, and use one thread. Any failure ends the process with a line on standard error.
class RelayLoad {
public:
    static constexpr std::size_t readerCount = 100;
    static constexpr std::size_t packBytes = 300;
    static constexpr std::size_t textsInFlight = 16;

    RelayLoad();
    ~RelayLoad();
    RelayLoad(const RelayLoad&) = delete;
    RelayLoad& operator=(const RelayLoad&) = delete;

    /// The public keys of the author and all readers, in text form, a line each.
    std::string keyFile() const;

    void connect(std::uint16_t port, RelayLogin login);

    /// Sends this many texts, and returns when all readers have got all of them.
    void run(std::size_t texts);

private:
    struct Link;

    std::vector<Nacl::KeyPair> keys;  // the author's first
    std::vector<Link> links;          // the author's first
    std::vector<Bytes> text;          // one frame for each reader
    int poll = -1;
};
