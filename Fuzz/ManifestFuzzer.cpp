// Reads the texts that an update consists of: a release's manifest, a bundle's property list, and what the signature
// tool prints about the bundle.

#include "Base/Bytes.h"
#include "Base/Check.h"
#include "PlatformBundle/PropertyListBundleReader.h"
#include "Text/Text.h"
#include "UpdateKit/CodeSignatureProfile.h"
#include "UpdateKit/ReleaseManifest.h"
#include "UpdateKit/UpdateKitError.h"

namespace {

void checkVersion(std::string_view text) {
    try {
        const auto version = SemanticVersion::parse(text);
        check(SemanticVersion::parse(version.description()) == version, "a version's description is another version");
    } catch (const UpdateKitError& error) {
        check(error.payload() == text, "the text of a version that is none has changed");
    }
}

void checkManifest(ByteView json) {
    static const Url place = *Url::parse("https://h.example/releases/latest.json");
    try {
        const auto manifest = ReleaseManifest::decode(json);
        const auto resolved = manifest.resolved(place);
        check(resolved.version == manifest.version, "resolving changes the version");
        check(resolved.url == manifest.url || resolved.url.scheme, "a resolved address is relative");
        check(resolved.resolved(place) == resolved, "an address is not settled");
    } catch (const UpdateKitError& error) {
        check(error.code() == UpdateKitError::Code::invalidManifest ||
                  error.code() == UpdateKitError::Code::invalidVersion,
              "a manifest is refused with the error of something else");
    }
}

void checkPropertyList(std::string_view xml) {
    const auto texts = textsOfPropertyList(xml);
    if (!texts) return;
    for (const auto& [key, text] : *texts) check(Text::isUtf8(text), "a property list's text is not UTF-8");
    const AppBundle bundle{"/a/A.app", *texts};
    if (const auto executable = bundle.executable())
        check(executable->lexically_normal().parent_path() == "/a/A.app/Contents/Linux",
              "a bundle's executable lies elsewhere");
}

void checkProfile(std::string_view output) {
    const auto profile = CodeSignatureProfile::parse(output);
    const CodeSignatureProfile none;
    check(!none.matches(profile), "a profile with nothing in it matches");
    const bool isSomebody =
        profile.kind == CodeSignatureProfile::Kind::adhoc || profile.teamIdentifier || !profile.authorityChain.empty();
    check(!profile.matches(profile) || isSomebody, "a profile of nobody matches");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView bytes{data, size};
    const std::string_view text = textOf(bytes);
    checkVersion(text);
    checkManifest(bytes);
    checkPropertyList(text);
    checkProfile(text);
    return 0;
}
