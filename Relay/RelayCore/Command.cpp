#include "RelayCore/Command.h"

#include <array>
#include <utility>
#include <vector>

const std::string_view commandHelp =
    "help: show this. who: show the members, and who of them is there. "
    "Admins only: add KEY: admit somebody. remove KEY: throw somebody out, with the mail that waits for them. "
    "admin KEY: make a member an admin. unadmin KEY: make an admin a plain member. "
    "KEY is a public key of 64 hexadecimal characters.";

namespace {

std::vector<std::string_view> wordsOf(std::string_view text) {
    constexpr std::string_view space = " \t\r\n";
    std::vector<std::string_view> words;
    while (true) {
        const auto start = text.find_first_not_of(space);
        if (start == std::string_view::npos) return words;
        text.remove_prefix(start);
        const auto end = std::min(text.find_first_of(space), text.size());
        words.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
}

}  // namespace

Command Command::parsed(std::string_view text) {
    // A key has 64 characters; nobody types this much, and nothing is gained by reading on.
    if (text.size() > 1000) return {};
    const auto words = wordsOf(text);
    if (words.empty()) return {};
    constexpr std::array plain{std::pair{std::string_view("list"), CommandKind::list},
                               std::pair{std::string_view("help"), CommandKind::help},
                               std::pair{std::string_view("who"), CommandKind::who}};
    for (const auto& [word, kind] : plain)
        if (words.size() == 1 && words[0] == word) return {kind};
    constexpr std::array keyed{std::pair{std::string_view("add"), CommandKind::add},
                               std::pair{std::string_view("remove"), CommandKind::remove},
                               std::pair{std::string_view("admin"), CommandKind::admin},
                               std::pair{std::string_view("unadmin"), CommandKind::unadmin}};
    for (const auto& [word, kind] : keyed) {
        if (words[0] != word) continue;
        if (words.size() == 1) return {CommandKind::missingKey};
        const auto key = words.size() == 2 ? memberKey(words[1]) : std::nullopt;
        return key ? Command{kind, *key} : Command{CommandKind::badKey};
    }
    return {};
}

std::optional<PublicKey> memberKey(std::string_view text) {
    if (text.size() != 2 * Nacl::publicKeyBytes) return std::nullopt;
    const auto key = Nacl::publicKeyFromHex(text);
    if (!key) return std::nullopt;
    try {
        // A few points of the curve give the same secret with every key, so that anybody could act as a member
        // with such a key. Sealing with any secret key shows such a point, so a fixed one will do.
        SecretKey probe;
        probe.writable()[0] = 8;
        Nacl::SharedKey(*key, probe);
    } catch (const NaclError&) {
        return std::nullopt;
    }
    return key;
}
