#pragma once

#include "Base/Bytes.h"
#include "Text/Url.h"
#include "UpdateKit/SemanticVersion.h"

#include <cstddef>
#include <optional>

/// What a server publishes about its newest release. The program fetches nothing else to learn of a release.
///
/// JSON: {"version": text, "url": text, "minimumSystemVersion": optional text}; other keys are ignored, and
/// the last of repeated keys counts.
struct ReleaseManifest {
    /// In bytes. A longer document is refused without being read.
    static constexpr std::size_t maxSize = 64 * 1024;

    SemanticVersion version;
    Url url;  // of the zip archive; absolute, or relative to the manifest's folder
    std::optional<SemanticVersion> minimumSystemVersion;

    /// Any scheme is accepted here; whoever fetches the archive decides which to take.
    /// @throws UpdateKitError  invalidVersion for a `version` that is none, else invalidManifest
    [[nodiscard]] static ReleaseManifest decode(ByteView json);

    /// With an absolute `url`.
    /// @param manifestUrl  where this manifest was fetched; unchanged if no URL can be built from it
    [[nodiscard]] ReleaseManifest resolved(const Url& manifestUrl) const;

    [[nodiscard]] bool supportsSystem(const SemanticVersion& systemVersion) const;

    bool operator==(const ReleaseManifest&) const = default;
};
