#include "TerminalKit/Addressee.h"

#include "Text/Text.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace {

constexpr std::size_t keyLength = 64;
constexpr std::size_t shortestKey = 6;
constexpr std::size_t mostShown = 8;
constexpr std::size_t longestShownName = 40;

using Code = AddresseeError::Code;

std::string shown(std::string_view name) { return "\"" + Text::escaped(Text::prefix(name, longestShownName)) + "\""; }

std::string_view withoutLeadingBlanks(std::string_view text) {
    const auto first = text.find_first_not_of(' ');
    return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

/// The word in lower case, if it may be a key or the beginning of one.
std::optional<std::string> keyPart(std::string_view word) {
    if (word.size() < shortestKey || word.size() > keyLength) return std::nullopt;
    std::string result(word);
    for (char& c : result) {
        if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return std::nullopt;
    }
    return result;
}

/// A person whom WHO fits, and the rest of the line after WHO.
struct Fit {
    const Person* person;
    std::string_view rest;
};

Addressee chosen(std::string_view who, std::string key, std::string_view rest) {
    const std::string_view text = withoutLeadingBlanks(rest);
    if (Text::trimmed(text).empty()) throw AddresseeError(Code::noText, "there is no text for " + shown(who));
    return {std::move(key), std::string(text)};
}

[[noreturn]] void refuseSeveral(const std::vector<Fit>& fits) {
    std::string text = "this fits several people, so say which by key";
    bool isLongName = false;
    for (const Fit& fit : fits) isLongName |= fit.person->displayName() != fits.front().person->displayName();
    if (isLongName) text += " (or with the name in quotes)";
    text += ":";
    const std::size_t count = std::min(fits.size(), mostShown);
    for (std::size_t i = 0; i < count; ++i)
        text += (i ? ", " : " ") + shown(fits[i].person->displayName()) + " " + fits[i].person->publicKey;
    if (fits.size() > count) text += " and " + std::to_string(fits.size() - count) + " more";
    throw AddresseeError(Code::ambiguous, text);
}

[[noreturn]] void refuseUnknown(std::string_view who) {
    throw AddresseeError(Code::unknown, "there is nobody called " + shown(who) +
                                            "; a person is known by key until you have heard from them");
}

Addressee onlyOne(const std::vector<Fit>& fits, std::string_view who) {
    if (fits.empty()) refuseUnknown(who);
    if (fits.size() > 1) refuseSeveral(fits);
    return chosen(fits.front().person->displayName(), fits.front().person->publicKey, fits.front().rest);
}

Addressee quoted(std::string_view line, const State& state) {
    const std::size_t end = line.find('"', 1);
    if (end == std::string_view::npos) throw AddresseeError(Code::noWho, "a quote behind the name is missing");
    const std::string_view name = line.substr(1, end - 1);
    std::vector<Fit> fits;
    for (const auto& [key, person] : state.people)
        if (person.displayName() == name) fits.push_back({&person, line.substr(end + 1)});
    return onlyOne(fits, name);
}

}  // namespace

Addressee Addressee::parse(std::string_view line, const State& state) {
    if (line.empty() || line.front() == ' ') throw AddresseeError(Code::noWho, "behind \"@\" there is no name or key");
    if (line.front() == '"') return quoted(line, state);

    const std::string_view word = line.substr(0, line.find(' '));
    const std::string_view behindWord = line.substr(word.size());
    if (const auto part = keyPart(word)) {
        if (part->size() == keyLength) return chosen(*part, *part, behindWord);
        std::vector<Fit> fits;
        for (const auto& [key, person] : state.people)
            if (key.starts_with(*part)) fits.push_back({&person, behindWord});
        if (fits.size() > 1) refuseSeveral(fits);
        if (!fits.empty()) return chosen(word, fits.front().person->publicKey, behindWord);
    }

    std::vector<Fit> fits;
    for (const auto& [key, person] : state.people) {
        const std::string name = person.displayName();
        if (line.starts_with(name) && (line.size() == name.size() || line[name.size()] == ' '))
            fits.push_back({&person, line.substr(name.size())});
    }
    return onlyOne(fits, word);
}
