#include "PlatformCore/LinuxHost.h"

#include "PlatformBundle/PropertyListBundleReader.h"
#include "PlatformBundle/RunningBundle.h"

#include <QTimeZone>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <sys/utsname.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t longestText = 200;
constexpr std::size_t longestLine = 4096;  // a longer line of os-release is skipped

constexpr std::array<std::pair<std::string_view, std::string_view>, 4> compiledInfo{{
    {"CFBundleName", "Vimble"},
    {"CFBundleShortVersionString", VIMBLE_VERSION},
    {"CFBundleVersion", VIMBLE_VERSION},
    {"CFBundleIdentifier", "zorvane.Vimble"},
}};

/// Makes one line for a header or a window, cut at the limit but never inside a character.
std::string plain(std::string text) {
    std::erase_if(text, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
    if (text.size() <= longestText) return text;
    std::size_t end = longestText;
    while (end > 0 && (text[end] & 0xC0) == 0x80) --end;
    text.resize(end);
    return text;
}

/// The value of a shell-like assignment, with its quotes removed and its backslashes resolved.
std::string unquoted(std::string_view value) {
    const bool isQuoted =
        value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front();
    if (!isQuoted) return std::string(value);
    const bool hasEscapes = value.front() == '"';
    value = value.substr(1, value.size() - 2);
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (hasEscapes && value[i] == '\\' && i + 1 < value.size()) ++i;
        text += value[i];
    }
    return text;
}

/// A value of a file of assignments (os-release(5), machine-info(5)); nothing if absent or empty.
std::optional<std::string> assigned(const std::filesystem::path& file, std::string_view name) {
    std::ifstream stream(file);
    std::string line;
    std::optional<std::string> value;  // of assignments to one name, the last counts
    while (std::getline(stream, line)) {
        if (line.size() > longestLine || !line.starts_with(name) || line.size() <= name.size() ||
            line[name.size()] != '=')
            continue;
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r')) line.pop_back();
        value = plain(unquoted(std::string_view(line).substr(std::min(name.size() + 1, line.size()))));
    }
    if (value && value->empty()) return std::nullopt;
    return value;
}

}  // namespace

LinuxHost::LinuxHost(std::filesystem::path systemRoot, const std::filesystem::path& executable)
    : systemRoot(std::move(systemRoot)) {
    PropertyListBundleReader reader;
    _bundle = bundleOf(reader, executable);
}

std::optional<std::string> LinuxHost::bundleInfo(std::string_view key) const {
    if (_bundle) return _bundle->text(key);
    for (const auto& [known, value] : compiledInfo)
        if (known == key) return std::string(value);
    return std::nullopt;
}

std::optional<std::string> LinuxHost::hardwareName() const {
    utsname system{};
    if (uname(&system) != 0 || system.machine[0] == '\0') return std::nullopt;
    return plain(system.machine);
}

std::optional<std::string> LinuxHost::osRelease(std::string_view name) const {
    for (const char* file : {"etc/os-release", "usr/lib/os-release"})
        if (auto value = assigned(systemRoot / file, name)) return value;
    return std::nullopt;
}

std::string LinuxHost::operatingSystemVersion() const {
    if (auto name = osRelease("PRETTY_NAME")) return *name;
    utsname system{};
    if (uname(&system) != 0) return "Linux";
    return plain(std::string(system.sysname) + " " + system.release);
}

std::string LinuxHost::timeZoneIdentifier() const {
    const QByteArray id = QTimeZone::systemTimeZoneId();
    return id.isEmpty() ? "UTC" : plain(id.toStdString());
}

std::string LinuxHost::localeIdentifier() const {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr || *value == '\0') continue;
        std::string locale = plain(value);
        locale.resize(std::min(locale.find_first_of(".@"), locale.size()));
        return locale.empty() || locale == "C" || locale == "POSIX" ? "en_US_POSIX" : locale;
    }
    return "en_US_POSIX";
}

std::optional<std::string> LinuxHost::computerName() const {
    if (auto name = assigned(systemRoot / "etc/machine-info", "PRETTY_HOSTNAME")) return name;
    std::array<char, 256> buffer{};
    if (gethostname(buffer.data(), buffer.size() - 1) != 0) return std::nullopt;
    std::string name = plain(buffer.data());
    if (name.empty() || name == "(none)" || name == "localhost" || name.starts_with("localhost.")) return std::nullopt;
    return name;
}
