#include "PlatformBundle/PropertyListBundleReader.h"

#include "Base/Bytes.h"
#include "Base/File.h"
#include "Text/Text.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <plist/plist.h>
#include <system_error>
#include <type_traits>

namespace {

using Texts = std::map<std::string, std::string, std::less<>>;

constexpr std::size_t maxCollections = 1000;

struct PlistDeleter {
    void operator()(void* plist) const { plist_free(plist); }
};
struct Freer {
    void operator()(char* text) const { std::free(text); }
};
using PlistOwner = std::unique_ptr<std::remove_pointer_t<plist_t>, PlistDeleter>;
using TextOwner = std::unique_ptr<char, Freer>;

std::size_t countOf(std::string_view part, std::string_view text) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
    return count;
}

/// Whether the library may be asked to read this. It frees nested values by recursion, so their number is limited.
/// They are counted in the text, where each of them begins with "<dict" or "<array".
bool isHarmless(std::string_view xml) {
    const std::size_t begin = xml.find_first_not_of(" \t\r\n");
    return xml.size() <= PropertyListBundleReader::maxSize && begin != xml.npos && xml[begin] == '<' &&
           xml.find('\0') == xml.npos && Text::isUtf8(xml) && xml.find("<!ENTITY") == xml.npos &&
           countOf("<dict", xml) + countOf("<array", xml) <= maxCollections;
}

std::optional<Texts> textsOf(plist_t dictionary) {
    Texts texts;
    plist_dict_iter position = nullptr;
    plist_dict_new_iter(dictionary, &position);
    const TextOwner owner(static_cast<char*>(position));
    for (;;) {
        char* keyText = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dictionary, position, &keyText, &value);
        const TextOwner key(keyText);
        if (!key || !value) return texts;
        if (plist_get_node_type(value) != PLIST_STRING) continue;
        char* valueText = nullptr;
        plist_get_string_val(value, &valueText);
        const TextOwner text(valueText);
        if (!text || !Text::isUtf8(text.get())) return std::nullopt;
        texts.emplace(key.get(), text.get());
    }
}

/// Reads a file up to a byte beyond the limit. Nothing if it is a link or a pipe, or can't be read.
std::optional<Bytes> readSmallFile(const std::filesystem::path& path) {
    try {
        return File::read(path, PropertyListBundleReader::maxSize, File::Links::refuse);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

}  // namespace

std::optional<Texts> textsOfPropertyList(std::string_view xml) {
    if (!isHarmless(xml)) return std::nullopt;
    plist_t parsed = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &parsed);
    const PlistOwner owner(parsed);
    if (!parsed || plist_get_node_type(parsed) != PLIST_DICT) return std::nullopt;
    return textsOf(parsed);
}

std::optional<AppBundle> PropertyListBundleReader::open(const std::filesystem::path& path) {
    const auto xml = readSmallFile(path / "Contents" / "Info.plist");
    auto texts = xml ? textsOfPropertyList(textOf(*xml)) : std::nullopt;
    if (!texts) return std::nullopt;
    return AppBundle{path, std::move(*texts)};
}
