#pragma once

#include "Base/Bytes.h"
#include "CodeSignature/Sha256.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// One thing in a bundle.
struct SealEntry {
    enum class Kind { directory, file, link };

    Kind kind = Kind::file;
    std::string path;            // relative to the bundle; empty for the bundle itself
    unsigned mode = 0;           // permissions, 0 to 0777; 0 for a link, which has none
    std::uint64_t size = 0;      // bytes of a file
    Sha256::Digest digest = {};  // of a file's contents, of a link's target

    bool operator==(const SealEntry&) const = default;
};

/// The list of all that a bundle holds. The bytes of this list are what is signed.
///
/// Shape: text in UTF-8, each line ending in one line feed. "vimble-seal 1", then "signature required" or
/// "signature none", then a line for each entry, ascending by the bytes of the path, the bundle itself
/// first as ".":
///
///     directory MODE PATH
///     file MODE SIZE SHA256 PATH
///     link SHA256 PATH
///
/// MODE is four octal digits, SIZE decimal, SHA256 64 lower-case hexadecimal characters. A list can be
/// written in one way only: parsing refuses any other. The folder of the seal is not in it.
///
/// "signature required" stands inside what is signed, so that a seal whose signature was taken away does
/// not pass for one that never had any.
struct Seal {
    static constexpr std::string_view folder = "Contents/_CodeSignature";
    static constexpr std::size_t maximumBytes = 32 << 20;
    static constexpr std::size_t maximumEntries = 100'000;
    static constexpr std::size_t maximumPathBytes = 1024;
    static constexpr std::size_t maximumDepth = 64;
    static constexpr std::uint64_t maximumFileBytes = std::uint64_t{4} << 30;  // of one file, and of all together

    bool isSigned = false;           // whether a signature has to be there
    std::vector<SealEntry> entries;  // ascending by path

    /// Takes entries in any order.
    /// @throws CodeSignatureError unsealable  the first name that is not plain UTF-8 or too long, two that
    ///         differ only in case (of ASCII letters), too many entries or bytes
    [[nodiscard]] static Seal of(std::vector<SealEntry> entries, bool isSigned);

    /// @throws CodeSignatureError badSeal  anything but what `bytes` writes
    [[nodiscard]] static Seal parse(ByteView bytes);

    Bytes bytes() const;
    /// @return null if there is no such path
    const SealEntry* find(std::string_view path) const;

    bool operator==(const Seal&) const = default;
};
