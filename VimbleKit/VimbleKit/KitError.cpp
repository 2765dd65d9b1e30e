#include "VimbleKit/KitError.h"

#include <iterator>

namespace {

struct Entry {
    KitError::Code code;
    const char* name;
    const char* text;
    bool takesExplanation;
};

// In the order of the enumeration.
constexpr Entry entries[] = {
    {KitError::Code::notLoggedIn, "notLoggedIn", "Not logged in", false},
    {KitError::Code::alreadyConnecting, "alreadyConnecting", "Connecting already underway", false},
    {KitError::Code::alreadyRegistering, "alreadyRegistering", "Registration already underway", false},
    {KitError::Code::alreadyConnected, "alreadyConnected", "Already connected to the Service", false},
    {KitError::Code::notConnected, "notConnected", "Account not connected", false},
    {KitError::Code::clientDeprecated, "clientDeprecated", "Client deprecated, please upgrade", false},
    {KitError::Code::badRequest, "badRequest", "Bad Request: ", true},
    {KitError::Code::badParameter, "badParameter", "Bad Parameter: ", true},
    {KitError::Code::badBase, "badBase", "Bad Base: ", true},
    {KitError::Code::notFound, "notFound", "Not Found: ", true},
    {KitError::Code::network, "network", "Network Error: ", true},
    {KitError::Code::service, "service", "Server Error: ", true},
    {KitError::Code::unknown, "unknown", "Unknown Error: ", true},
};

constexpr const Entry& entryOf(KitError::Code code) { return entries[static_cast<std::size_t>(code)]; }

static_assert([] {
    for (std::size_t i = 0; i < std::size(entries); ++i)
        if (entries[i].code != static_cast<KitError::Code>(i)) return false;
    return std::size(entries) == static_cast<std::size_t>(KitError::Code::unknown) + 1;
}());

}  // namespace

KitError::KitError(Code code, std::optional<std::string> explanation)
    : _code(code), _explanation(std::move(explanation)) {
    const Entry& entry = entryOf(_code);
    text = entry.text;
    if (entry.takesExplanation) text += _explanation.value_or("");
}

const char* KitError::name(Code code) { return entryOf(code).name; }

std::optional<KitError::Code> KitError::code(std::string_view name) {
    for (const Entry& entry : entries)
        if (name == entry.name) return entry.code;
    return std::nullopt;
}
