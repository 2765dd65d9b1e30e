#pragma once

#include "StateKit/Json.h"
#include "StateKit/Printed.h"
#include "StateKit/Record.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

/// Why a value could not be loaded or saved. `what()` is the whole text.
class [[nodiscard]] DiskError : public std::runtime_error {
public:
    enum class Code { decode, encode };

    /// "Could not decode value TYPE from FILE: UNDERLYING"
    static DiskError decode(std::string_view typeName, std::string_view filename, std::string_view underlying,
                            bool isMissing);
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
/// part. It is not forced onto the medium, since waiting for that on the main thread would be felt. Most
/// file systems (ext4, btrfs) do it by themselves before such a rename takes effect; on others, a
/// failure of the power can take the last write, though no crash of a program can.
///
/// Files are made for their owner alone (mode 0600, folders 0700): they hold conversations.
///
/// Operations block; they may be called on any thread, but not for one file on two.
class Disk {
public:
    /// A file longer than this is not read, in bytes.
    static constexpr std::size_t maxFileSize = std::size_t(1) << 30;

    /// @param root  the application's own folder, such as `folderFor` gives; need not exist yet
    /// @param nameSpace  any text, also a URL; names the store's folder below `root`
    Disk(std::filesystem::path root, std::string nameSpace);

    /// The application's folder in the user's application-support folder.
    /// @param bundleIdentifier  "plomb.Unknown" stands for a bundle that has none
    static std::filesystem::path folderFor(const std::filesystem::path& applicationSupport,
                                           const std::optional<std::string>& bundleIdentifier);

    /// The store's folder: every "://" of the namespace becomes "…", slashes make further subfolders,
    /// and no namespace leads out of the root: of its parts, "." and ".." are written "%2E" and
    /// "%2E%2E", a NUL "%00", and empty ones are left out. A part too long for the file system makes
    /// every operation fail.
    std::filesystem::path folder() const;

    /// KEY.json in the store's folder; without a key, the type's plain name and ".json". A key is one
    /// file's name: slashes and NULs in it are written "%2F" and "%00".
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

private:
    /// The bytes of a file, ready to be decoded.
    /// @throws std::system_error  also for what is no regular file, or longer than `maxFileSize`
    static JsonInput read(const std::filesystem::path& path);
    /// Replaces a file, making its folders.
    /// @throws std::system_error  nothing is left behind, and an earlier file stays
    static void write(const std::filesystem::path& path, ByteView bytes);
    static void removeFile(const std::filesystem::path& path);
    static std::optional<std::filesystem::path> setAsideFile(const std::filesystem::path& path);
    /// The beginning of a long description: millions of characters in an error help nobody.
    static std::string shortened(std::string description);
    static std::filesystem::path fileName(const std::string& stem);

    template <class Type>
    static std::string stem(const std::optional<std::string>& key) {
        return key ? *key : plainTypeName<Type>();
    }

    std::filesystem::path root;
    std::string nameSpace;
};

template <class Type>
std::filesystem::path Disk::file(const std::optional<std::string>& key) const {
    return folder() / fileName(stem<Type>(key));
}

template <class Type>
Type Disk::load(const std::optional<std::string>& key) const {
    const std::filesystem::path path = file<Type>(key);
    const auto failed = [&](const char* underlying, bool isMissing) {
        return DiskError::decode(plainTypeName<Type>(), path.filename().native(), underlying, isMissing);
    };
    try {
        return Json::decode<Type>(read(path));
    } catch (const std::system_error& error) {
        // Use the code's text: the exception's text begins with the operation that failed.
        const bool isMissing = error.code() == std::errc::no_such_file_or_directory;
        throw failed(error.code().message().c_str(), isMissing);
    } catch (const JsonError& error) {
        throw failed(error.what(), false);
    }
}

template <class Type>
void Disk::load(Type& variable, const std::optional<std::string>& key) const {
    if constexpr (isOptional<Type>)
        variable = load<typename Type::value_type>(key);
    else
        variable = load<Type>(key);
}

template <class Type>
void Disk::save(const std::optional<Type>& value, const std::optional<std::string>& key) const {
    if (value)
        save(*value, key);
    else
        remove<Type>(key);
}

template <class Type>
void Disk::save(const Type& value, const std::optional<std::string>& key) const {
    const std::filesystem::path path = file<Type>(key);
    const auto failed = [&](const char* underlying) {
        return DiskError::encode(path.filename().native(), shortened(printed(value)), underlying);
    };
    try {
        write(path, Json::encodePretty(value).bytes());
    } catch (const std::system_error& error) {
        throw failed(error.code().message().c_str());
    } catch (const JsonError& error) {
        throw failed(error.what());
    }
}

template <class Type>
void Disk::remove(const std::optional<std::string>& key) const {
    removeFile(file<Type>(key));
}

template <class Type>
std::optional<std::filesystem::path> Disk::setAside(const std::optional<std::string>& key) const {
    return setAsideFile(file<Type>(key));
}
