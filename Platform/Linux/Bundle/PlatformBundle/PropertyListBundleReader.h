#pragma once

#include "UpdateKit/AppBundle.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

/// The texts in a property list of the XML form, whose top is a dictionary; other values are left out.
///
/// The list may come from anybody, so whatever an application does not need is refused: the binary form, entities
/// of its own, more than 64 KiB, more than 1,000 lists and dictionaries, what is not UTF-8. The last of repeated
/// keys counts.
/// @return nothing for what is refused, or no such property list
std::optional<std::map<std::string, std::string, std::less<>>> textsOfPropertyList(std::string_view xml);

/// Opens bundles by their `Contents/Info.plist`, which must be a file of its own.
class PropertyListBundleReader : public BundleReader {
public:
    static constexpr std::size_t maxSize = 64 * 1024;

    std::optional<AppBundle> open(const std::filesystem::path& path) override;
};
