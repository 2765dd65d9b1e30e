#pragma once

#include "StateKit/Json.h"
#include "StateKit/Printed.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// Why a value could not be loaded or saved. `what()` is the whole text.
class DiskError : public std::runtime_error {
public:
    enum class Code { decode, encode };

    /// "Could not decode value TYPE from FILE: UNDERLYING"
    static DiskError decode(std::string_view typeName, std::string_view filename, std::string_view underlying, bool isMissing);
    /// "Could not encode VALUE to FILE: UNDERLYING"
    static DiskError encode(std::string_view filename, std::string_view valueDescription, std::string_view underlying);

    Code code;
    bool isMissing = false;  // decode only: there was no such file

private:
    DiskError(Code code, bool isMissing, const std::string& text);
};

/// JSON files of values, in a folder for each namespace.
///
/// No cache: every read goes to the file and every write replaces it. A write goes to a file beside it
/// and is then renamed, so that a process that dies leaves the old contents or the new ones, never a
/// part. It is not forced onto the medium: the file systems of a desktop do that by themselves before
/// such a rename takes effect, and waiting for it on the main thread would be felt.
///
/// Operations block; they may be called on any thread, but not for one file on two.
class Disk {
public:
    /// @param root  the application's own folder, such as `folderFor` gives; need not exist yet
    /// @param nameSpace  any text, also a URL; names the store's folder below `root`
    Disk(std::filesystem::path root, std::string nameSpace);

    /// The application's folder in the user's application-support folder.
    /// @param bundleIdentifier  "plomb.Unknown" stands for a bundle that has none
    static std::filesystem::path folderFor(const std::filesystem::path& applicationSupport,
                                           const std::optional<std::string>& bundleIdentifier);

    /// The store's folder: every "://" of the namespace becomes "…", slashes make further subfolders,
    /// and no namespace leads out of the root.
    std::filesystem::path folder() const;

    /// KEY.json in the store's folder; without a key, the type's plain name and ".json".
    template <class Type>
    std::filesystem::path file(const std::optional<std::string>& key = {}) const;

    /// @throws DiskError decode, also for a missing file
    template <class Type>
    Type load(const std::optional<std::string>& key = {}) const;

    /// Replaces what the variable (which may be an optional one) holds; leaves it alone on failure.
    /// @throws DiskError decode
    template <class Type>
    void load(Type& variable, const std::optional<std::string>& key = {}) const;

    /// Saves the value; removes its file if there is none.
    /// @throws DiskError encode; std::filesystem::filesystem_error from a removal
    template <class Type>
    void save(const std::optional<Type>& value, const std::optional<std::string>& key = {}) const;
    template <class Type>
    void save(const Type& value, const std::optional<std::string>& key = {}) const;

    /// @throws std::filesystem::filesystem_error  nothing happens where there is no file
    template <class Type>
    void remove(const std::optional<std::string>& key = {}) const;

    /// Renames a file that can't be decoded to NAME.damaged (NAME.damaged.2 and so on where that is
    /// taken), so that the next save does not destroy what somebody may still repair.
    /// @return the new name; nothing if there was no file, or it can't be renamed
    template <class Type>
    std::optional<std::filesystem::path> setAside(const std::optional<std::string>& key = {}) const;
};
