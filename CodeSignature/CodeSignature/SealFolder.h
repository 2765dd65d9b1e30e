#pragma once

#include "Base/Bytes.h"

#include <filesystem>
#include <optional>

/// The folder in a bundle that holds its seal, `Contents/_CodeSignature`: a file "Seal" (`Seal::bytes`) and,
/// in a bundle that somebody has signed, a file "Signature" (`CmsSignature`) over that file. Nothing else, and no
/// other modes than 0755 for the folder and 0644 for the files.
struct SealFolder {
    Bytes seal;
    std::optional<Bytes> signature;

    /// @param bundle  an open folder
    /// @throws CodeSignatureError noSeal; badSeal  more than these files in it, or other modes, or too large;
    ///         unreadable
    [[nodiscard]] static SealFolder read(int bundle);

    /// Replaces the present seal in one step: a reader finds the old one or the new one. Where the file
    /// system can't exchange two names, there is no seal for a moment.
    /// @param bundle  used by this process alone; has a folder Contents
    /// @throws CodeSignatureError notWritten  the old seal is in its place, or the new one if only the last step has
    ///         failed; either is whole
    void write(const std::filesystem::path& bundle) const;

    /// Removes what an earlier process left behind when it died in `write`.
    /// @throws CodeSignatureError notWritten
    static void removeLeftovers(const std::filesystem::path& bundle);
};
