#include "UpdateKit/SemanticVersion.h"

#include "Text/Text.h"
#include "UpdateKit/UpdateKitError.h"

#include <array>
#include <charconv>
#include <optional>

namespace {

std::optional<std::int64_t> number(std::string_view piece) {
    // `from_chars` accepts a minus but no plus.
    if (piece.starts_with('+')) {
        piece.remove_prefix(1);
        if (piece.starts_with('-')) return std::nullopt;
    }
    std::int64_t value = 0;
    const char* end = piece.data() + piece.size();
    const auto [stop, error] = std::from_chars(piece.data(), end, value);
    if (error != std::errc() || stop != end) return std::nullopt;
    return value;
}

std::optional<SemanticVersion> parsed(std::string_view text) {
    std::string_view rest = Text::trimmed(text);
    if (rest.starts_with('v')) rest.remove_prefix(1);
    std::array<std::int64_t, 3> numbers{};
    for (auto& each : numbers) {
        const std::size_t point = rest.find('.');
        const auto value = number(rest.substr(0, point));
        if (!value) return std::nullopt;
        each = *value;
        if (point == std::string_view::npos) return SemanticVersion{numbers[0], numbers[1], numbers[2]};
        rest.remove_prefix(point + 1);
    }
    return std::nullopt;  // a fourth piece
}

}  // namespace

SemanticVersion SemanticVersion::parse(std::string_view text) {
    if (const auto version = parsed(text)) return *version;
    throw UpdateKitError(UpdateKitError::Code::invalidVersion, text);
}

std::string SemanticVersion::description() const {
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

std::size_t std::hash<SemanticVersion>::operator()(const SemanticVersion& version) const {
    std::size_t result = 0;
    for (const auto number : {version.major, version.minor, version.patch})
        result = result * 0x9E3779B97F4A7C15U + std::hash<std::int64_t>()(number);
    return result;
}
