#include "PlatformBundle/PropertyListBundleReader.h"

#include "Base/FileDescriptor.h"
#include "Text/Text.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <plist/plist.h>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>

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
std::optional<std::string> readSmallFile(const std::filesystem::path& path) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    std::string text(PropertyListBundleReader::maxSize + 1, '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t count = ::read(file.get(), text.data() + size, text.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::nullopt;
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
    }
    text.resize(size);
    return text;
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
    auto texts = xml ? textsOfPropertyList(*xml) : std::nullopt;
    if (!texts) return std::nullopt;
    return AppBundle{path, std::move(*texts)};
}
