#include "CodeSignature/BundleHasher.h"

#include "Base/File.h"
#include "Base/FileDescriptor.h"
#include "CodeSignature/BundleLinks.h"
#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/EscapedText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <utility>

namespace {

using Code = CodeSignatureErrorCode;

constexpr std::size_t bufferBytes = 1 << 20;

CodeSignatureError notReadable(std::string_view path) {
    return CodeSignatureError(Code::unreadable, path, std::string("it can't be read: ") + std::strerror(errno));
}

CodeSignatureError changing(std::string_view path) {
    return CodeSignatureError(Code::unreadable, path, "it changed while it was read");
}

bool areSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_mode == b.st_mode && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
           a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

struct stat statusOf(int file, std::string_view path) {
    struct stat status {};
    if (::fstat(file, &status) != 0) throw notReadable(path);
    return status;
}

/// @throws CodeSignatureError unsealable  for the bits that let a program run as somebody else
unsigned permissions(const struct stat& status, std::string_view path) {
    // A folder inherits this bit from the folder that it is made in, so it says nothing of the bundle.
    const mode_t ignored = S_ISDIR(status.st_mode) ? S_ISGID : 0;
    const mode_t mode = status.st_mode & 07777 & ~ignored;
    if ((mode & ~mode_t{0777}) != 0)
        throw CodeSignatureError(Code::unsealable, path, "it has a set-user-ID, set-group-ID or sticky bit");
    return mode;
}

std::vector<std::string> namesIn(int folder, std::string_view path) {
    FileDescriptor again = File::openAt(folder, ".", O_DIRECTORY);
    if (!again) throw notReadable(path);
    const std::unique_ptr<DIR, int (*)(DIR*)> list(::fdopendir(again.get()), ::closedir);
    if (!list) throw notReadable(path);
    static_cast<void>(again.release());  // the list closes it
    std::vector<std::string> names;
    while (true) {
        errno = 0;
        const dirent* entry = ::readdir(list.get());
        if (!entry) {
            if (errno != 0) throw notReadable(path);
            break;
        }
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (names.size() > Seal::maximumEntries)
            throw CodeSignatureError(Code::unsealable, path, "it holds more than 100000 files");
        names.emplace_back(name);
    }
    // Sort, so that the first difference is the same one every time.
    std::ranges::sort(names);
    return names;
}

std::string_view wordFor(SealEntry::Kind kind) {
    switch (kind) {
        case SealEntry::Kind::directory: return "a folder";
        case SealEntry::Kind::file: return "a file";
        case SealEntry::Kind::link: break;
    }
    return "a symbolic link";
}

std::string octal(unsigned mode) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04o", mode);
    return text.data();
}

}  // namespace

BundleHasher::BundleHasher(int bundle, const Seal* expected)
    : bundle(bundle), expected(expected), buffer(bufferBytes) {}

std::vector<SealEntry> BundleHasher::read() {
    readFolder(bundle, "", 0);
    checkNothingMissing();
    std::ranges::sort(entries, {}, &SealEntry::path);
    BundleLinks(entries, targets).checkAll();
    return std::move(entries);
}

void BundleHasher::readFolder(int folder, const std::string& path, unsigned depth) {
    const struct stat before = statusOf(folder, path);
    const SealEntry entry{SealEntry::Kind::directory, path, permissions(before, path)};
    meet(entry);
    keep(entry);
    for (const std::string& name : namesIn(folder, path)) {
        std::string below = path;
        if (!below.empty()) below += '/';
        below += name;
        if (below != Seal::folder) readEntry(folder, name, below, depth);
    }
    if (!areSame(before, statusOf(folder, path))) throw changing(path);
}

void BundleHasher::readEntry(int folder, const std::string& name, const std::string& path, unsigned depth) {
    if (expected && !expected->find(path)) throw CodeSignatureError(Code::filesDiffer, path, "it is not in the seal");
    if (path.size() > Seal::maximumPathBytes || depth >= Seal::maximumDepth)
        throw CodeSignatureError(Code::unsealable, path, "it lies too deep in the bundle");
    struct stat seen {};
    if (::fstatat(folder, name.c_str(), &seen, AT_SYMLINK_NOFOLLOW) != 0) throw notReadable(path);
    switch (seen.st_mode & S_IFMT) {
        case S_IFDIR: {
            const FileDescriptor inner = File::openAt(folder, name, O_DIRECTORY);
            if (!inner) throw notReadable(path);
            readFolder(inner.get(), path, depth + 1);
            break;
        }
        case S_IFREG:
            readFile(folder, name,
                     {SealEntry::Kind::file, path, permissions(seen, path), static_cast<std::uint64_t>(seen.st_size)},
                     seen);
            break;
        case S_IFLNK: readLink(folder, name, {SealEntry::Kind::link, path}); break;
        default:
            throw CodeSignatureError(Code::unsealable, path, "it is neither a file nor a folder nor a symbolic link");
    }
}

void BundleHasher::readFile(int folder, const std::string& name, SealEntry entry, const struct stat& seen) {
    meet(entry);
    const FileDescriptor file = File::openAt(folder, name);
    if (!file) throw notReadable(entry.path);
    if (!areSame(seen, statusOf(file.get(), entry.path))) throw changing(entry.path);
    ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    std::uint64_t size = 0;
    while (true) {
        const ssize_t count = ::read(file.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw notReadable(entry.path);
        if (count == 0) break;
        size += static_cast<std::uint64_t>(count);
        // Stop at the first byte too many: somebody could go on appending for as long as we read.
        if (size > entry.size) throw changing(entry.path);
        hash.update(ByteView(buffer).first(static_cast<std::size_t>(count)));
    }
    if (size != entry.size || !areSame(seen, statusOf(file.get(), entry.path))) throw changing(entry.path);
    entry.digest = hash.finish();
    keep(std::move(entry));
}

void BundleHasher::readLink(int folder, const std::string& name, SealEntry entry) {
    meet(entry);
    std::array<char, BundleLinks::maximumTargetBytes + 1> text;
    const ssize_t length = ::readlinkat(folder, name.c_str(), text.data(), text.size());
    if (length < 0) throw notReadable(entry.path);
    if (static_cast<std::size_t>(length) == text.size())
        throw CodeSignatureError(Code::unsealable, entry.path, "the link's target is longer than 1024 bytes");
    std::string target(text.data(), static_cast<std::size_t>(length));
    entry.digest = Sha256::of(bytesOf(target));
    targets.emplace(entry.path, std::move(target));
    keep(std::move(entry));
}

void BundleHasher::meet(const SealEntry& entry) {
    if (++met > Seal::maximumEntries)
        throw CodeSignatureError(Code::unsealable, "", "it holds more than 100000 files and folders");
    if (entry.size > Seal::maximumFileBytes || (total += entry.size) > Seal::maximumFileBytes)
        throw CodeSignatureError(Code::unsealable, entry.path, "with it the bundle is larger than 4 GiB");
    if (!expected) return;
    const SealEntry* wanted = expected->find(entry.path);
    const auto differs = [&](const std::string& how) { throw CodeSignatureError(Code::filesDiffer, entry.path, how); };
    if (!wanted) return differs("it is not in the seal");
    if (wanted->kind != entry.kind)
        differs("it is " + std::string(wordFor(entry.kind)) + " and was sealed as " +
                std::string(wordFor(wanted->kind)));
    if (wanted->mode != entry.mode)
        differs("its mode is " + octal(entry.mode) + " and was sealed as " + octal(wanted->mode));
    if (wanted->size != entry.size) differs("its contents are not what was sealed");
}

void BundleHasher::keep(SealEntry entry) {
    if (expected) {
        const SealEntry* wanted = expected->find(entry.path);
        if (!wanted || *wanted != entry)
            throw CodeSignatureError(Code::filesDiffer, entry.path,
                                     entry.kind == SealEntry::Kind::link ? "the link leads elsewhere than when sealed"
                                                                         : "its contents are not what was sealed");
    }
    entries.push_back(std::move(entry));
}

void BundleHasher::checkNothingMissing() const {
    if (!expected || entries.size() == expected->entries.size()) return;
    std::vector<std::string_view> found;
    for (const SealEntry& entry : entries) found.push_back(entry.path);
    std::ranges::sort(found);
    for (const SealEntry& wanted : expected->entries)
        if (!std::ranges::binary_search(found, std::string_view(wanted.path)))
            throw CodeSignatureError(Code::filesDiffer, wanted.path, "it is missing");
}
