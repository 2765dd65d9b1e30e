#pragma once

#include "TweetNacl/Nacl.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <string>
#include <vector>

/// A made-up server and its people. It makes the frames that the server would send.
struct Group {
    explicit Group(std::size_t count) : server(Nacl::keyPair()) {
        for (std::size_t i = 0; i < count; ++i) people.push_back(Nacl::keyPair());
    }

    Bytes greeting() const { return Greeting::encoded(server.publicKey); }

    /// A list of everybody and the user, sealed for the user.
    Bytes list(const PublicKey& user) const {
        std::vector<MetaPerson> entries{{Nacl::hex(user), false, true}};
        for (const auto& person : people) entries.push_back({Nacl::hex(person.publicKey), false, true});
        return Pack{server.publicKey, user, {}, ServerMessage::encodedList(entries)}
            .encrypted(server.secretKey)
            .bytes();
    }

    Nacl::KeyPair server;
    std::vector<Nacl::KeyPair> people;
};

/// A text of 200 characters such as people write.
inline std::string sampleText() {
    std::string text;
    while (text.size() < 200) text += "Shall we meet at the lake at seven? ";
    return text.substr(0, 200);
}
