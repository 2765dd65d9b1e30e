#pragma once

#include "Text/Url.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// URLs of files, and the names in the paths of URLs. Source: RFC 8089.
namespace FileUrl {

/// Whether the scheme is "file", in letters of any case.
bool isFile(const Url& url);

/// @param path  absolute; what is no plain character of a path is written with percent signs
Url of(const std::filesystem::path& path);

/// Nothing for a URL that is no file's, that names another machine, or whose path is not absolute or has a
/// zero in it.
std::optional<std::filesystem::path> path(const Url& url);

/// Percent signs and the two digits behind them turned to the byte they stand for; those that stand before
/// anything else stay.
std::string percentDecoded(std::string_view text);

}  // namespace FileUrl
