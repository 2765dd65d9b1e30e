#include "CodeSignature/SealFolder.h"

#include "Base/File.h"
#include "Base/FileDescriptor.h"
#include "CodeSignature/CmsSignature.h"
#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/EscapedText.h"
#include "CodeSignature/Seal.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

using Code = CodeSignatureErrorCode;
namespace fs = std::filesystem;

constexpr mode_t folderMode = 0755;
constexpr mode_t fileMode = 0644;
constexpr std::string_view sealName = "Seal";
constexpr std::string_view signatureName = "Signature";
constexpr std::string_view newFolder = "_CodeSignature.new-";

std::string pathOf(std::string_view name) { return std::string(Seal::folder) + '/' + std::string(name); }

CodeSignatureError notReadable(std::string_view path) {
    return CodeSignatureError(Code::unreadable, path, std::string("it can't be read: ") + std::strerror(errno));
}

void checkMode(const struct stat& status, mode_t wanted, mode_t ignored, std::string_view path) {
    if ((status.st_mode & 07777 & ~ignored) != wanted)
        throw CodeSignatureError(Code::badSeal, path, "it has another mode than it should");
}

FileDescriptor openFolder(int parent, const std::string& name) {
    FileDescriptor folder = File::openAt(parent, name, O_DIRECTORY);
    if (!folder && (errno == ENOENT || errno == ENOTDIR || errno == ELOOP))
        throw CodeSignatureError(Code::noSeal, "the bundle is not sealed");
    if (!folder) throw notReadable(Seal::folder);
    return folder;
}

/// @return nothing if there is no such file
std::optional<Bytes> contents(int folder, std::string_view name, std::size_t maximum) {
    const std::string path = pathOf(name);
    const FileDescriptor file = File::openAt(folder, std::string(name));
    if (!file && errno == ENOENT) return std::nullopt;
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) throw notReadable(path);
    if (!S_ISREG(status.st_mode)) throw CodeSignatureError(Code::badSeal, path, "it is no file");
    checkMode(status, fileMode, 0, path);
    if (status.st_size < 0 || static_cast<std::uint64_t>(status.st_size) > maximum)
        throw CodeSignatureError(Code::badSeal, path, "it is too large");
    // Try to read one byte more, to see whether the file has grown meanwhile.
    Bytes bytes(static_cast<std::size_t>(status.st_size) + 1);
    const auto length = File::readInto(file.get(), bytes);
    if (!length) throw notReadable(path);
    if (*length + 1 != bytes.size()) throw CodeSignatureError(Code::unreadable, path, "it changed while it was read");
    bytes.resize(*length);
    return bytes;
}

void checkNothingElse(int folder) {
    FileDescriptor again = File::openAt(folder, ".", O_DIRECTORY);
    if (!again) throw notReadable(Seal::folder);
    const std::unique_ptr<DIR, int (*)(DIR*)> list(::fdopendir(again.get()), ::closedir);
    if (!list) throw notReadable(Seal::folder);
    static_cast<void>(again.release());  // the list closes it
    while (true) {
        errno = 0;
        const dirent* entry = ::readdir(list.get());
        if (!entry) {
            if (errno != 0) throw notReadable(Seal::folder);
            return;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != ".." && name != sealName && name != signatureName)
            throw CodeSignatureError(Code::badSeal, pathOf(name), "it does not belong to a seal");
    }
}

CodeSignatureError notWritten(int error) {
    return CodeSignatureError(Code::notWritten, std::string("the seal could not be written: ") + std::strerror(error));
}

void writeFile(const fs::path& path, ByteView bytes) {
    FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, fileMode));
    if (!file) throw notWritten(errno);
    // Set the mode again, since the process's mask may have taken bits from it when the file was made.
    if (!File::writeAll(file.get(), bytes) || ::fchmod(file.get(), fileMode) != 0 || ::fsync(file.get()) != 0 ||
        !file.close())
        throw notWritten(errno);
}

void syncFolder(const fs::path& path) {
    const FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || ::fsync(folder.get()) != 0) throw notWritten(errno);
}

/// A new folder beside the seal's. When its holder dies, it is removed with all that it then holds.
class FolderBeside {
public:
    explicit FolderBeside(const fs::path& parent) {
        std::string name = (parent / newFolder).native() + "XXXXXX";
        if (!::mkdtemp(name.data())) throw notWritten(errno);
        path = name;
    }
    ~FolderBeside() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    FolderBeside(const FolderBeside&) = delete;
    FolderBeside& operator=(const FolderBeside&) = delete;

    /// @throws CodeSignatureError notWritten
    void remove() const {
        std::error_code error;
        fs::remove_all(path, error);
        if (error) throw CodeSignatureError(Code::notWritten, "the old seal could not be removed: " + error.message());
    }

    fs::path path;
};

void exchange(const FolderBeside& made, const fs::path& place) {
    if (::renameat2(AT_FDCWD, made.path.c_str(), AT_FDCWD, place.c_str(), RENAME_EXCHANGE) == 0) return;
    if (errno == ENOENT) {
        if (::rename(made.path.c_str(), place.c_str()) != 0) throw notWritten(errno);
        return;
    }
    if (errno != EINVAL && errno != ENOSYS) throw notWritten(errno);
    const FolderBeside old(place.parent_path());
    if (::rename(place.c_str(), old.path.c_str()) != 0) throw notWritten(errno);
    if (::rename(made.path.c_str(), place.c_str()) == 0) return;
    const int error = errno;
    static_cast<void>(::rename(old.path.c_str(), place.c_str()));
    throw notWritten(error);
}

}  // namespace

SealFolder SealFolder::read(int bundle) {
    const fs::path path(Seal::folder);
    const FileDescriptor parent = openFolder(bundle, path.parent_path().native());
    const FileDescriptor folder = openFolder(parent.get(), path.filename().native());
    struct stat status {};
    if (::fstat(folder.get(), &status) != 0) throw notReadable(Seal::folder);
    checkMode(status, folderMode, S_ISGID, Seal::folder);
    checkNothingElse(folder.get());
    auto seal = contents(folder.get(), sealName, Seal::maximumBytes);
    if (!seal) throw CodeSignatureError(Code::badSeal, pathOf(sealName), "it is missing");
    return {std::move(*seal), contents(folder.get(), signatureName, CmsSignature::maximumBytes)};
}

void SealFolder::write(const fs::path& bundle) const {
    const fs::path place = bundle / Seal::folder;
    std::error_code error;
    const fs::file_status there = fs::symlink_status(place, error);
    if (fs::exists(there) && !fs::is_directory(there))
        throw CodeSignatureError(Code::notWritten, Seal::folder, "it is no folder");
    const FolderBeside made(place.parent_path());
    writeFile(made.path / sealName, seal);
    if (signature) writeFile(made.path / signatureName, *signature);
    if (::chmod(made.path.c_str(), folderMode) != 0) throw notWritten(errno);
    syncFolder(made.path);
    exchange(made, place);
    syncFolder(place.parent_path());
    // If there was an old seal, this folder now holds it.
    made.remove();
}

void SealFolder::removeLeftovers(const fs::path& bundle) {
    std::error_code error;
    const fs::path parent = (bundle / Seal::folder).parent_path();
    for (fs::directory_iterator at(parent, error), end; !error && at != end; at.increment(error)) {
        if (!at->path().filename().native().starts_with(newFolder)) continue;
        fs::remove_all(at->path(), error);
    }
    if (error)
        throw CodeSignatureError(Code::notWritten,
                                 "what an earlier signing left could not be removed: " + escapedText(error.message()));
}
