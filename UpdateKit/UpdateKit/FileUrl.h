#pragma once

#include "Text/Url.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// URLs of files, and the names in the paths of URLs. Source: RFC 8089.
namespace FileUrl {

/// Whether the scheme is "file", in letters of any case.
[[nodiscard]] bool isFile(const Url& url);

/// @param path  absolute; characters that a URL's path can't hold are written with percent signs
[[nodiscard]] Url of(const std::filesystem::path& path);

/// Nothing for a URL that is no file's, that names another machine, or whose path is not absolute or has a
/// zero byte in it.
[[nodiscard]] std::optional<std::filesystem::path> path(const Url& url);

/// Replaces each percent sign and the two hexadecimal digits behind it by the byte that they stand for. A
/// percent sign before anything else stays.
[[nodiscard]] std::string percentDecoded(std::string_view text);

}  // namespace FileUrl
