#include "VimbleWire/ServerMessage.h"

#include "StateKit/Json.h"
#include "VimbleWire/Pack.h"

#include <algorithm>

namespace {

constexpr std::size_t kindSize = 4;

Bytes encodedMessage(std::string_view kind, ByteView body) {
    Bytes message;
    message.reserve(kindSize + body.size());
    message.insert(message.end(), kind.begin(), kind.end());
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

}  // namespace

Bytes Greeting::encoded(const PublicKey& serverKey) { return encodedMessage(prefix, serverKey); }

std::optional<PublicKey> Greeting::decoded(ByteView frame) {
    if (frame.size() != size || textOf(frame.first(prefix.size())) != prefix) return std::nullopt;
    PublicKey key;
    std::copy(frame.begin() + prefix.size(), frame.end(), key.begin());
    return key;
}

std::optional<ServerMessage> ServerMessage::decoded(ByteView plaintext) {
    if (plaintext.size() <= kindSize) return std::nullopt;
    const std::string_view kind = textOf(plaintext.first(kindSize));
    if (!JsonReader::isUtf8(kind)) return std::nullopt;
    return ServerMessage{std::string(kind), plaintext.subspan(kindSize)};
}

Bytes ServerMessage::encodedList(const std::vector<MetaPerson>& people) {
    return encodedMessage(list, Json::encode(people).bytes());
}

Bytes ServerMessage::encodedText(std::string_view kind, std::string_view text) {
    return encodedMessage(kind, PackPlaintext{std::nullopt, "", "", std::string(text)}.encoded());
}

std::optional<std::vector<MetaPerson>> ServerMessage::decodedList(ByteView body) {
    try {
        return Json::decode<std::vector<MetaPerson>>(body);
    } catch (const JsonError&) {
        return std::nullopt;
    }
}
