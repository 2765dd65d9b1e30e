#include "UpdateKit/ReleaseManifest.h"

#include "StateKit/Json.h"
#include "UpdateKit/UpdateKitError.h"

namespace {

// The document is read as two records, so that an unreadable version is reported as such even if the address
// is missing.
struct Versions {
    std::string version;
    std::optional<std::string> minimumSystemVersion;
    static constexpr std::tuple fields{Field{"version", &Versions::version},
                                       Field{"minimumSystemVersion", &Versions::minimumSystemVersion}};
};

struct Address {
    std::string url;
    static constexpr std::tuple fields{Field{"url", &Address::url}};
};

UpdateKitError invalid(const std::string& why) { return UpdateKitError(UpdateKitError::Code::invalidManifest, why); }

Url decodedUrl(ByteView json) {
    const std::string text = Json::decode<Address>(json).url;
    const auto url = Url::parse(text);
    if (text.empty() || !url) throw invalid("The key \"url\" holds no URL.");
    return *url;
}

}  // namespace

ReleaseManifest ReleaseManifest::decode(ByteView json) {
    if (json.size() > maxSize) throw invalid("The document is longer than 64 KiB.");
    try {
        const auto versions = Json::decode<Versions>(json);
        ReleaseManifest manifest;
        manifest.version = SemanticVersion::parse(versions.version);
        manifest.url = decodedUrl(json);
        if (const auto& minimum = versions.minimumSystemVersion) try {
                manifest.minimumSystemVersion = SemanticVersion::parse(*minimum);
            } catch (const UpdateKitError&) {
                throw invalid("Unable to parse minimumSystemVersion: " + *minimum);
            }
        return manifest;
    } catch (const JsonError& error) {
        throw invalid(error.what());
    }
}

ReleaseManifest ReleaseManifest::resolved(const Url& manifestUrl) const {
    if (url.scheme) return *this;
    ReleaseManifest result = *this;
    if (const auto absolute = manifestUrl.deletingLastPathComponent().resolving(url)) result.url = *absolute;
    return result;
}

bool ReleaseManifest::supportsSystem(const SemanticVersion& systemVersion) const {
    return !minimumSystemVersion || systemVersion >= *minimumSystemVersion;
}
