#pragma once

#include "Base/Bytes.h"
#include "Text/Url.h"
#include "UpdateKit/SemanticVersion.h"

#include <cstddef>
#include <optional>

/// What a server publishes about its newest release: all that the program fetches to learn of one.
///
/// JSON: {"version": text, "url": text, "minimumSystemVersion": optional text}; other keys are ignored, and
/// of a repeated key the last counts.
struct ReleaseManifest {
    /// A longer document is refused unread, in bytes.
    static constexpr std::size_t maxSize = 64 * 1024;

    SemanticVersion version;
    Url url;  // of the zip archive; absolute, or relative to the manifest's folder
    std::optional<SemanticVersion> minimumSystemVersion;

    /// Any scheme is taken here; who fetches judges it.
    /// @throws UpdateKitError  invalidVersion for a `version` that is none, else invalidManifest
    static ReleaseManifest decode(ByteView json);

    /// With an absolute `url`.
    /// @param manifestUrl  where this manifest was fetched; unchanged if no URL can be built from it
    ReleaseManifest resolved(const Url& manifestUrl) const;

    bool supportsSystem(const SemanticVersion& systemVersion) const;

    bool operator==(const ReleaseManifest&) const = default;
};
