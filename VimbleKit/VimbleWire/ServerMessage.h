#pragma once

#include "Base/Bytes.h"
#include "StateKit/Record.h"
#include "TweetNacl/Nacl.h"

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

/// One entry of the server's list of people.
///
/// JSON: {"publicKey": 64 lower-case hexadecimal characters, "isAdmin": boolean, "isOnline": boolean}.
struct MetaPerson {
    std::string publicKey;
    bool isAdmin = false;
    bool isOnline = false;

    static constexpr auto fields =
        std::tuple{Field{"publicKey", &MetaPerson::publicKey}, Field{"isAdmin", &MetaPerson::isAdmin},
                   Field{"isOnline", &MetaPerson::isOnline}};

    bool operator==(const MetaPerson&) const = default;
};

/// The first frame of every connection, from the server, in the clear: "vimble:" and its public key,
/// 39 bytes.
struct Greeting {
    static constexpr std::string_view prefix = "vimble:";
    static constexpr std::size_t size = prefix.size() + Nacl::publicKeyBytes;

    [[nodiscard]] static Bytes encoded(const PublicKey& serverKey);
    /// Nothing for a frame of another length or prefix.
    [[nodiscard]] static std::optional<PublicKey> decoded(ByteView frame);
};

/// A message of the server, inside a pack: a kind (4 bytes), then a body (at least 1 byte).
struct ServerMessage {
    static constexpr std::string_view list = "list";             // body: JSON array of MetaPerson
    static constexpr std::string_view commandError = "cerr";     // body: JSON PackPlaintext
    static constexpr std::string_view commandResponse = "crsp";  // body: JSON PackPlaintext

    /// Nothing for 4 bytes or fewer, and for a kind that is not UTF-8.
    [[nodiscard]] static std::optional<ServerMessage> decoded(ByteView plaintext);

    [[nodiscard]] static Bytes encodedList(const std::vector<MetaPerson>& people);
    /// @param kind  `commandError` or `commandResponse`
    [[nodiscard]] static Bytes encodedText(std::string_view kind, std::string_view text);

    /// Nothing if the body is no list.
    [[nodiscard]] static std::optional<std::vector<MetaPerson>> decodedList(ByteView body);

    std::string kind;
    ByteView body;  // borrowed from the plaintext
};
