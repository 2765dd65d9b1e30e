// Reads JSON. A value that was read is written so that it is read as the same value again, and no text is read
// that another library refuses.
//
// The first byte chooses the type, the rest is the text.

#include "FuzzSupport/FuzzInput.h"

#include "Base/Check.h"
#include "StateKit/Json.h"
#include "VimbleKit/DomainJson.h"
#include "VimbleKit/State.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <rapidjson/document.h>

namespace {

/// Whether the other library accepts the text.
bool isJson(std::string_view text) {
    // Let the library read a flat stream of tokens: unlike ours, its recursive reader has no limit on the depth.
    struct Ignore : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Ignore> {
        bool Default() { return true; }
    };
    Ignore ignore;
    rapidjson::MemoryStream stream(text.data(), text.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> plain(stream);
    rapidjson::Reader reader;
    return !reader.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(plain, ignore)
                .IsError();
}

template <class Type>
std::optional<Type> decoded(ByteView text) {
    try {
        return Json::decode<Type>(text);
    } catch (const JsonError&) {
        return std::nullopt;
    }
}

template <class Type>
void checkType(ByteView text) {
    const auto value = decoded<Type>(text);
    if (!value) return;
    // The other library stops at a NUL, and skips a byte order mark. Ours must refuse both.
    check(textOf(text).find('\0') == std::string_view::npos, "a text with a NUL was read");
    check(!textOf(text).starts_with("\xEF\xBB\xBF"), "a text with a mark in front was read");
    check(isJson(textOf(text)), "a text was read that is no JSON");

    const JsonText once = Json::encode(*value);
    const auto again = decoded<Type>(once.bytes());
    check(again == value, "a value comes back altered");
    check(Json::encode(*again).view() == once.view(), "a value is written differently the second time");
    const JsonText pretty = Json::encodePretty(*value);
    check(decoded<Type>(pretty.bytes()) == value, "a value comes back altered over many lines");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::uint8_t type = input.byte();
    const ByteView text = input.rest();
    switch (type % 14) {
        case 0: checkType<PackPlaintext>(text); break;
        case 1: checkType<std::vector<MetaPerson>>(text); break;
        case 2: checkType<Connection>(text); break;
        case 3: checkType<Endpoint>(text); break;
        case 4: checkType<Person>(text); break;
        case 5: checkType<Chat>(text); break;
        case 6: checkType<Message>(text); break;
        case 7: checkType<SharedMap<std::string, Person>>(text); break;
        case 8: checkType<SharedMap<std::string, Chat>>(text); break;
        case 9: checkType<KitError>(text); break;
        case 10: checkType<double>(text); break;
        case 11: checkType<std::string>(text); break;
        case 12: checkType<std::int64_t>(text); break;
        case 13: checkType<std::optional<std::vector<std::optional<bool>>>>(text); break;
    }
    return 0;
}
