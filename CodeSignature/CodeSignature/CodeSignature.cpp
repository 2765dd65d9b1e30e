#include "CodeSignature/CodeSignature.h"

#include "Base/FileDescriptor.h"
#include "CodeSignature/BundleHasher.h"
#include "CodeSignature/CmsSignature.h"
#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/EscapedText.h"
#include "CodeSignature/Seal.h"
#include "CodeSignature/SealFolder.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

using Code = CodeSignatureErrorCode;

FileDescriptor openBundle(const std::filesystem::path& path) {
    // The path to the bundle may lead through links, but no link inside the bundle is followed.
    FileDescriptor bundle(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!bundle) throw CodeSignatureError(Code::noBundle, path.native(), std::strerror(errno));
    struct stat contents {};
    if (::fstatat(bundle.get(), "Contents", &contents, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(contents.st_mode))
        throw CodeSignatureError(Code::noBundle, path.native(), "it is no bundle, since it has no folder Contents");
    return bundle;
}

}  // namespace

CodeSignature::Profile CodeSignature::verify(const std::filesystem::path& path) {
    const FileDescriptor bundle = openBundle(path);
    const SealFolder folder = SealFolder::read(bundle.get());
    const Seal seal = Seal::parse(folder.seal);
    Profile profile;
    if (seal.isSigned) {
        if (!folder.signature)
            throw CodeSignatureError(Code::badSeal, "the seal is to be signed, and its signature is missing");
        profile.signer = CmsSignature::verify(folder.seal, *folder.signature);
        profile.signatureBytes = folder.signature->size();
    } else if (folder.signature) {
        throw CodeSignatureError(Code::badSeal, "the seal is ad hoc, and has a signature all the same");
    }
    BundleHasher(bundle.get(), &seal).read();
    profile.entries = seal.entries.size();
    for (const SealEntry& entry : seal.entries) profile.bytes += entry.size;
    profile.sealDigest = Sha256::of(folder.seal);
    return profile;
}

void CodeSignature::seal(const std::filesystem::path& path, const SigningIdentity* identity) {
    const FileDescriptor bundle = openBundle(path);
    // Two programs that seal at once would each take the other's new folder for a part of the bundle.
    if (::flock(bundle.get(), LOCK_EX | LOCK_NB) != 0)
        throw CodeSignatureError(Code::notWritten, path.native(), "it is being sealed by another program");
    SealFolder::removeLeftovers(path);
    const Seal seal = Seal::of(BundleHasher(bundle.get(), nullptr).read(), identity != nullptr);
    SealFolder folder{seal.bytes(), std::nullopt};
    if (folder.seal.size() > Seal::maximumBytes)
        throw CodeSignatureError(Code::unsealable, "", "its list would be larger than 32 MiB");
    if (identity) folder.signature = CmsSignature::make(folder.seal, *identity);
    folder.write(path);
}

std::string CodeSignature::description(const std::filesystem::path& path, const Profile& profile) {
    std::error_code ignored;
    const std::filesystem::path whole = std::filesystem::weakly_canonical(path, ignored);
    std::string text = "Bundle=" + escapedText((ignored ? path : whole).native()) + "\nFormat=app bundle\n";
    text += "Seal=sha256:" + Sha256::hex(profile.sealDigest) + '\n';
    text += "Sealed entries=" + std::to_string(profile.entries) + '\n';
    text += "Sealed bytes=" + std::to_string(profile.bytes) + '\n';
    if (!profile.signer) return text + "Signature=adhoc\nTeamIdentifier=not set\n";
    text += "Signature size=" + std::to_string(profile.signatureBytes) + '\n';
    for (const Authority& authority : profile.signer->chain) text += "Authority=" + authority.text() + '\n';
    return text + "TeamIdentifier=" + profile.signer->teamIdentifier.value_or("not set") + '\n';
}
