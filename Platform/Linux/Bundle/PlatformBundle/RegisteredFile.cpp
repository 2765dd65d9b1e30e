#include "PlatformBundle/RegisteredFile.h"

#include "Base/Bytes.h"
#include "Base/File.h"
#include "Text/Text.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t maxSize = std::size_t(1) << 20;  // bytes

std::runtime_error failure(const fs::path& path, const std::error_code& error) {
    return std::runtime_error(path.native() + ": " + error.message());
}

bool hasContents(const fs::path& path, std::string_view contents) {
    try {
        return textOf(File::read(path, contents.size())) == contents;
    } catch (const std::system_error&) {
        return false;
    }
}

}  // namespace

bool RegisteredFile::update(const fs::path& path, std::string_view contents) {
    if (hasContents(path, contents)) return false;
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error) throw failure(path.parent_path(), error);
    try {
        // Give it a hidden name: desktops take every other file in these folders for an entry or an icon.
        File::replace(path, bytesOf(contents), {.durability = File::Durability::crash, .permissions = 0644});
    } catch (const std::system_error& problem) {
        throw failure(path, problem.code());
    }
    return true;
}

std::string RegisteredFile::read(const fs::path& path) {
    try {
        return std::string(textOf(File::read(path, maxSize)));
    } catch (const std::system_error& problem) {
        throw failure(path, problem.code());
    }
}

void RegisteredFile::requirePlain(const fs::path& path) {
    const std::string& text = path.native();
    const bool hasControls =
        std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
    if (hasControls || !Text::isUtf8(text))
        throw std::runtime_error(text + ": the desktop can't be told of a place with such a name");
}
