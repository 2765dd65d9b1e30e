#pragma once

#include "CodeSignature/Sha256.h"
#include "CodeSignature/Signer.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

class SigningIdentity;

/// The seal of a bundle: a list of all that is in it (`Seal`), signed by an identity or, ad hoc, by nobody.
///
/// A signed one says that the bundle is what the holder of a key has sealed, down to the last byte, name,
/// mode and link. An ad-hoc one only says that the bundle is whole; anybody can make one. No signer is
/// trusted here: the caller compares the signer with the one that it expects.
///
/// Not under the seal: owners, times, extended attributes and access lists of the files.
///
/// All operations block while they read the bundle (a second or so a GB) and may be called on any thread, though not for
/// one bundle that another thread is sealing.
namespace CodeSignature {

/// What is true of a bundle whose seal holds.
struct Profile {
    std::optional<Signer> signer;    // absent: sealed ad hoc
    std::size_t signatureBytes = 0;  // 0 for an ad-hoc seal
    std::size_t entries = 0;         // files, folders and links
    std::uint64_t bytes = 0;         // of the files
    Sha256::Digest sealDigest = {};  // of the list: the same only for the same bundle

    bool operator==(const Profile&) const = default;
};

/// Checks whether the seal and its signature hold. A change to a file after it was read is not seen.
/// @param bundle  a folder with a folder "Contents", or a link to one
/// @throws CodeSignatureError  anything but badIdentity and notWritten
[[nodiscard]] Profile verify(const std::filesystem::path& bundle);

/// Seals a bundle anew, in place of any seal that it has. A failure leaves the old one.
/// @param identity  null: ad hoc
/// @throws CodeSignatureError  anything but noSeal, badSeal and filesDiffer
void seal(const std::filesystem::path& bundle, const SigningIdentity* identity);

/// What `vimble-codesign -d` prints of it: lines of the form "Name=value", each ending in a line feed.
///
/// "Bundle=", "Format=app bundle", "Seal=sha256:HEX", "Sealed entries=", "Sealed bytes="; then of an ad-hoc seal
/// "Signature=adhoc", else "Signature size=" and an "Authority=" for each certificate (`Authority::text`); last
/// "TeamIdentifier=", with "not set" where there is none. A name in it can't make a line of its own.
std::string description(const std::filesystem::path& bundle, const Profile& profile);

}  // namespace CodeSignature
