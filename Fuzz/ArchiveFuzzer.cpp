// Unpacks archives from an attacker: whatever an archive holds, nothing outside the destination is made or changed, and
// what is unpacked keeps to the limits.
//
// The input is either a whole zip archive, or a script from which one is put together with valid checksums. A script
// has for each entry a byte that chooses the kind, the name, and the contents.

#include "FuzzSupport/FuzzInput.h"

#include "Base/Check.h"
#include "Base/FileDescriptor.h"
#include "PlatformBundle/ArchiveExtractor.h"
#include "PlatformBundle/FileTree.h"
#include "Text/Text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/openat2.h>
#include <optional>
#include <set>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr ExtractionLimits limits{.maxBytes = 1 << 20, .maxRatio = 20, .maxEntries = 200, .maxDepth = 8};

// ---- archives of scripts

/// Writes numbers as zip archives have them, with the lowest byte first.
class ZipText {
public:
    ZipText& two(std::uint32_t value) { return put(value, 2); }
    ZipText& four(std::uint32_t value) { return put(value, 4); }
    ZipText& add(std::string_view bytes) {
        text += bytes;
        return *this;
    }
    std::string text;

private:
    ZipText& put(std::uint32_t value, int count) {
        for (int i = 0; i < count; ++i) text += static_cast<char>(value >> (8 * i) & 0xFF);
        return *this;
    }
};

/// CRC-32. Source: ISO 3309.
std::uint32_t checksum(std::string_view bytes) {
    std::uint32_t value = ~std::uint32_t(0);
    for (const char c : bytes) {
        value ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ (value % 2 != 0 ? 0xEDB88320U : 0);
    }
    return ~value;
}

/// Makes an archive: local headers with their contents, the directory, and its end record. Nothing is compressed.
/// Source: APPNOTE.TXT of the zip format, 4.3.
std::string archiveOf(FuzzInput& script) {
    constexpr std::array<std::uint32_t, 12> modes{0100644, 0100755, 0104777, 0100000, 0040755, 0040500,
                                                  0120777, 0120000, 0010644, 0020644, 0140644, 0170777};
    constexpr std::uint32_t madeOnUnix = 3 << 8 | 20, version = 20, isUtf8 = 1 << 11;
    ZipText archive, directory;
    std::uint32_t count = 0;
    for (; !script.isEmpty() && count < 300; ++count) {
        const std::uint32_t mode = modes[script.below(modes.size())];
        const std::string name = script.text();
        const std::string contents = script.text();
        const auto size = static_cast<std::uint32_t>(contents.size());
        ZipText common;
        common.two(version).two(isUtf8).two(0).two(0).two(0x21).four(checksum(contents)).four(size).four(size);
        common.two(static_cast<std::uint32_t>(name.size())).two(0);
        const auto place = static_cast<std::uint32_t>(archive.text.size());
        archive.four(0x04034B50).add(common.text).add(name).add(contents);
        directory.four(0x02014B50).two(madeOnUnix).add(common.text).two(0).two(0).two(0).four(mode << 16).four(place);
        directory.add(name);
    }
    const auto place = static_cast<std::uint32_t>(archive.text.size());
    const auto size = static_cast<std::uint32_t>(directory.text.size());
    archive.add(directory.text).four(0x06054B50).two(0).two(0).two(count).two(count).four(size).four(place).two(0);
    return archive.text;
}

// ---- checks of what was unpacked

/// The properties of a file or a folder that change if anybody touches it.
std::string marksOf(const fs::path& path) {
    struct stat status {};
    check(::lstat(path.c_str(), &status) == 0, "what lay beside the destination is gone");
    std::string marks;
    for (const auto number :
         {static_cast<long>(status.st_ino), static_cast<long>(status.st_mode), static_cast<long>(status.st_nlink),
          static_cast<long>(status.st_size), status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_ctim.tv_sec,
          status.st_ctim.tv_nsec})
        marks += std::to_string(number) + " ";
    return marks;
}

/// A folder in memory, in which an archive is unpacked beside things that must stay as they are.
class Place {
public:
    Place() {
        std::string name = "/dev/shm/vimble-fuzz-XXXXXX";
        check(::mkdtemp(name.data()) != nullptr, "no folder in memory could be made");
        top = name;
        fs::create_directory(top / "sentinel");
        std::ofstream(top / "sentinel/file") << "as it was";
        std::ofstream(top / "file") << "as it was";
        empty();
    }
    ~Place() { FileTree::remove(top); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    void empty() {
        FileTree::remove(destination());
        check(::mkdir(destination().c_str(), 0700) == 0, "the destination can't be made");
    }

    fs::path destination() const { return top / "extracted"; }

    std::string marks() const {
        std::string result = marksOf(top);
        std::set<fs::path> paths;
        for (const auto& each : fs::directory_iterator(top)) paths.insert(each.path());
        for (const auto& each : fs::directory_iterator(top / "sentinel")) paths.insert(each.path());
        for (const fs::path& path : paths)
            if (path != destination()) result += path.native() + " " + marksOf(path);
        return result;
    }

private:
    fs::path top;
};

void checkLine(std::string_view text) {
    check(!text.empty() && Text::isUtf8(text), "a reason is no text");
    check(std::ranges::none_of(text, [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; }),
          "a reason makes a line of its own");
}

/// Fails if a link leads outside. The kernel resolves it, and refuses any step that leaves the destination.
void checkLink(int destination, const std::string& name) {
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH;
    const FileDescriptor target(static_cast<int>(::syscall(SYS_openat2, destination, name.c_str(), &how, sizeof how)));
    check(target || errno == ENOENT || errno == ENOTDIR, "a link leads outside");
}

/// @param isWhole  whether the whole archive was unpacked, and nothing refused
void checkContents(const fs::path& destination, std::uint64_t mostBytes, bool isWhole) {
    const FileDescriptor folder(::open(destination.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::uint64_t bytes = 0;
    std::set<std::string> folded;
    for (const auto& each : fs::recursive_directory_iterator(destination)) {
        struct stat status {};
        check(::lstat(each.path().c_str(), &status) == 0, "what was unpacked can't be looked at");
        const std::string name = each.path().lexically_relative(destination).native();
        check(folded.insert(Text::caseFolded(name)).second, "two names differ only in case");
        check((status.st_mode & 07000) == 0, "a special bit was kept");
        if (S_ISLNK(status.st_mode)) {
            if (isWhole) checkLink(folder.get(), name);
            continue;
        }
        check(S_ISDIR(status.st_mode) || (S_ISREG(status.st_mode) && status.st_nlink == 1), "there is an odd file");
        if (S_ISREG(status.st_mode)) bytes += static_cast<std::uint64_t>(status.st_size);
    }
    check(bytes <= mostBytes, "there is more than was allowed");
}

FileDescriptor inMemory(std::string_view bytes) {
    FileDescriptor file(::memfd_create("archive", MFD_CLOEXEC));
    check(file && ::write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
          "the archive can't be kept");
    return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Place place;
    FuzzInput input(data, size);
    const std::string_view given = textOf(ByteView(data, size));
    const std::string archive = given.starts_with("PK") ? std::string(given) : archiveOf(input);
    const FileDescriptor file = inMemory(archive);

    place.empty();
    const std::string before = place.marks();
    bool isWhole = true;
    try {
        extractArchive("/proc/self/fd/" + std::to_string(file.get()), place.destination(), limits);
    } catch (const ExtractionError& error) {
        checkLine(error.what());
        isWhole = false;
    }
    check(place.marks() == before, "something outside the destination has changed");
    checkContents(place.destination(), std::min(limits.maxBytes, archive.size() * limits.maxRatio), isWhole);
    return 0;
}
