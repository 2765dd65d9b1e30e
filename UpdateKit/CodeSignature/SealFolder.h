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
    static SealFolder read(int bundle);

    /// Replaces the one that is there, in one step: whoever reads finds the old one or the new one.
    /// Where the file system can't exchange two names, there is none for a moment.
    /// @param bundle  of this process alone; its folder Contents is there
    /// @throws CodeSignatureError notWritten  the old one, or, if it is the last step that fails, the new one is in its
    ///         place, each whole
    void write(const std::filesystem::path& bundle) const;

    /// Removes what a process left behind that died while it wrote.
    /// @throws CodeSignatureError notWritten
    static void removeLeftovers(const std::filesystem::path& bundle);
};
