#pragma once

#include "CodeSignature/Seal.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

/// Checks where the symbolic links of a bundle lead. It follows them in the list of what the bundle holds
/// and not on the disk, where they could lead through something outside.
///
/// Borrows both lists.
class BundleLinks {
public:
    static constexpr std::size_t maximumTargetBytes = 1024;

    /// @param entries  ascending by path
    /// @param targets  what the links point to, by the path of the link
    BundleLinks(const std::vector<SealEntry>& entries, const std::map<std::string, std::string>& targets)
        : entries(entries), targets(targets) {}

    /// @throws CodeSignatureError unsealable  names the first link that is absolute, leads out of the bundle
    ///         (also for a part of its way, also through other links), to nothing, or in a circle
    void checkAll() const;

private:
    void check(const std::string& path) const;
    const SealEntry* find(std::string_view path) const;

    const std::vector<SealEntry>& entries;
    const std::map<std::string, std::string>& targets;
};
