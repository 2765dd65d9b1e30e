#pragma once

#include <optional>
#include <string>
#include <string_view>

/// A URL reference in its components, each as it stands in the text, percent signs and all.
///
/// Source: RFC 3986, strictly, with ports up to 65535.
struct Url {
    /// Nothing for what is no URL reference.
    [[nodiscard]] static std::optional<Url> parse(std::string_view text);

    /// The components put together again.
    std::string text() const;

    /// This URL with one more component at the end of the path.
    [[nodiscard]] Url appending(std::string_view pathComponent) const;

    /// The folder of what it names: without the last component of the path, and ending in a slash. Query and
    /// fragment go too. Of "https://h/a/" it is "https://h/".
    [[nodiscard]] Url deletingLastPathComponent() const;

    /// What a reference in a document at this URL leads to; nothing if this URL has no scheme.
    [[nodiscard]] std::optional<Url> resolving(const Url& reference) const;

    std::optional<std::string> scheme;
    std::optional<std::string> userInfo;
    std::optional<std::string> host;  // an IPv6 address stands in its brackets
    std::optional<std::string> port;  // digits, or none behind a bare colon
    std::string path;
    std::optional<std::string> query;
    std::optional<std::string> fragment;

    bool operator==(const Url&) const = default;
};
