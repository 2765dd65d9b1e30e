#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/// A version number of three parts. There is no pre-release or build part: a text with one is no version.
struct SemanticVersion {
    std::int64_t major = 0;
    std::int64_t minor = 0;
    std::int64_t patch = 0;

    /// Reads "1.4.2", "v1.4.2", "1.4" or "2", with whitespace around it; missing numbers count 0, and each
    /// may have a sign.
    /// @throws UpdateKitError  invalidVersion, with the text as it came
    [[nodiscard]] static SemanticVersion parse(std::string_view text);

    /// Always the three numbers: "v2" is described as "2.0.0".
    std::string description() const;

    auto operator<=>(const SemanticVersion&) const = default;
};

template <>
struct std::hash<SemanticVersion> {
    std::size_t operator()(const SemanticVersion& version) const;
};
