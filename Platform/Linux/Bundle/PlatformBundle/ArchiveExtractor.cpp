#include "PlatformBundle/ArchiveExtractor.h"

#include "Base/Bytes.h"
#include "Base/File.h"
#include "Base/FileDescriptor.h"
#include "PlatformBundle/ArchiveNames.h"
#include "PlatformBundle/FileTree.h"
#include "Text/Text.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <cerrno>
#include <clocale>
#include <deque>
#include <fcntl.h>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Path = std::filesystem::path;

constexpr int maxLinksFollowed = 40;  // as the kernel does
constexpr std::size_t maxLinkSteps = 1'000'000;

struct ArchiveCloser {
    void operator()(struct archive* archive) const { archive_read_free(archive); }
};
using Archive = std::unique_ptr<struct archive, ArchiveCloser>;

/// Gives the thread a locale with UTF-8: the library converts names to the thread's locale, and in a plain one it
/// loses characters.
class Utf8Locale {
public:
    Utf8Locale() : locale(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
        if (locale) before = ::uselocale(locale);
    }
    ~Utf8Locale() {
        if (!locale) return;
        ::uselocale(before);
        ::freelocale(locale);
    }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    locale_t locale;
    locale_t before = nullptr;
};

[[noreturn]] void refuse(const std::string& name, const std::string& why) {
    throw ExtractionError("\"" + Text::escaped(name) + "\" " + why);
}

[[noreturn]] void failToWrite(const std::string& name) {
    const std::string why = std::system_category().message(errno);
    refuse(name, "could not be written: " + why);
}

std::string messageOf(struct archive* archive) {
    const char* text = archive_error_string(archive);
    return Text::escaped(text ? text : "unknown error");
}

class Extraction {
public:
    Extraction(const Path& archivePath, const Path& destination, const ExtractionLimits& limits,
               const std::stop_token& stop)
        : destination(destination), limits(limits), stop(stop), names(limits.maxDepth) {
        std::error_code error;
        const auto size = std::filesystem::file_size(archivePath, error);
        if (error) throw ExtractionError("the archive could not be read: " + error.message());
        // Divide the limit first: for a large archive the product could overflow.
        bytesLeft = size > limits.maxBytes / limits.maxRatio ? limits.maxBytes : size * limits.maxRatio;
        archive.reset(archive_read_new());
        if (!archive || archive_read_support_format_zip_seekable(archive.get()) != ARCHIVE_OK ||
            archive_read_set_options(archive.get(), "zip:hdrcharset=UTF-8") != ARCHIVE_OK)
            throw ExtractionError("archives can't be read here");
        if (archive_read_open_filename(archive.get(), archivePath.c_str(), 64 * 1024) != ARCHIVE_OK)
            throw ExtractionError("the archive could not be read: " + messageOf(archive.get()));
    }

    void run() {
        while (archive_entry* entry = next()) extract(entry);
        makeLinks();
        setFolderPermissions();
        flush();
    }

private:
    void checkStop() const {
        if (stop.stop_requested()) throw ExtractionError("it was called off");
    }

    archive_entry* next() {
        checkStop();
        archive_entry* entry = nullptr;
        const int status = archive_read_next_header(archive.get(), &entry);
        if (status == ARCHIVE_EOF) return nullptr;
        if (status != ARCHIVE_OK) throw ExtractionError("the archive is damaged: " + messageOf(archive.get()));
        if (++entryCount > limits.maxEntries) throw ExtractionError("the archive has too many files");
        return entry;
    }

    void extract(archive_entry* entry) {
        const char* raw = archive_entry_pathname(entry);
        if (!raw) throw ExtractionError("the archive has a file without a readable name");
        if (archive_entry_hardlink(entry)) refuse(raw, "is a hard link");
        if (archive_entry_is_encrypted(entry)) refuse(raw, "is encrypted");
        switch (archive_entry_filetype(entry)) {
            case AE_IFDIR: return extractFolder(names.addFolder(raw), archive_entry_perm(entry));
            case AE_IFREG: return extractFile(names.addFile(raw), archive_entry_perm(entry));
            case AE_IFLNK: return noteLink(names.addFile(raw), archive_entry_symlink(entry));
            default: refuse(raw, "is neither a file nor a folder nor a link");
        }
    }

    void extractFolder(const std::string& name, mode_t permissions) {
        makeFolder(name);
        // The owner must be able to remove what was unpacked.
        if (!name.empty()) folderPermissions[name] = (permissions & 0777) | 0700;
    }

    /// Makes a folder, and those above it.
    void makeFolder(const std::string& name) {
        if (name.empty() || folderPermissions.contains(name)) return;
        makeFolder(ArchiveNames::parentOf(name));
        if (::mkdir((destination / name).c_str(), 0700) != 0) failToWrite(name);
        folderPermissions[name] = 0755;
    }

    void extractFile(const std::string& name, mode_t permissions) {
        makeFolder(ArchiveNames::parentOf(name));
        FileDescriptor file(
            ::open((destination / name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file) failToWrite(name);
        std::array<std::uint8_t, 64 * 1024> buffer;
        for (;;) {
            checkStop();
            const la_ssize_t count = archive_read_data(archive.get(), buffer.data(), buffer.size());
            if (count < 0) refuse(name, "is damaged: " + messageOf(archive.get()));
            if (count == 0) break;
            if (static_cast<std::uint64_t>(count) > bytesLeft) refuse(name, "makes the archive too large unpacked");
            bytesLeft -= static_cast<std::uint64_t>(count);
            const ByteView bytes = ByteView(buffer).first(static_cast<std::size_t>(count));
            if (!File::writeAll(file.get(), bytes)) failToWrite(name);
        }
        if (::fchmod(file.get(), permissions & 0777) != 0 || !file.close()) failToWrite(name);
    }

    void noteLink(const std::string& name, const char* target) {
        if (!target || *target == '\0') refuse(name, "is a link to nowhere");
        if (*target == '/') refuse(name, "is a link to an absolute path");
        makeFolder(ArchiveNames::parentOf(name));
        links[name] = target;
    }

    void makeLinks() {
        // Where a link leads may depend on the others, so all of them are judged before any is made.
        for (const auto& [name, target] : links) {
            checkStop();
            checkLink(name);
        }
        for (const auto& [name, target] : links)
            if (::symlink(target.c_str(), (destination / name).c_str()) != 0) failToWrite(name);
    }

    /// Follows a link, and the links that it meets, by the names in the archive alone: a link to something that
    /// does not exist must stay inside too.
    void checkLink(const std::string& name) {
        std::vector<std::string> place;  // where the walk is, below the destination
        for (const auto& part : Path(ArchiveNames::parentOf(name))) place.push_back(part.native());
        std::deque<std::string> pending;
        for (const auto& part : Path(links.at(name))) pending.push_back(part.native());
        int followed = 0;
        while (!pending.empty()) {
            const std::string part = std::move(pending.front());
            pending.pop_front();
            if (++linkSteps > maxLinkSteps) throw ExtractionError("the archive's links are too tangled");
            if (part.empty() || part == ".") continue;
            if (part == "..") {
                if (place.empty()) refuse(name, "is a link that leads outside");
                place.pop_back();
                continue;
            }
            place.push_back(part);
            const auto link = links.find(joined(place));
            if (link == links.end()) continue;
            if (++followed > maxLinksFollowed) refuse(name, "is a link that leads in a circle");
            place.pop_back();
            const Path target(link->second);
            std::vector<std::string> parts;
            for (const auto& each : target) parts.push_back(each.native());
            pending.insert(pending.begin(), parts.begin(), parts.end());
        }
    }

    static std::string joined(const std::vector<std::string>& parts) {
        std::string result;
        for (const auto& part : parts) result += result.empty() ? part : "/" + part;
        return result;
    }

    void setFolderPermissions() {
        for (const auto& [name, permissions] : folderPermissions)
            if (::chmod((destination / name).c_str(), permissions) != 0) failToWrite(name);
    }

    /// Flushes here, where nobody waits for it, and not when the user has clicked. Flushes everything at once, since
    /// the disk takes longer for one file after the other.
    void flush() {
        try {
            FileTree::flush(destination, stop);
        } catch (const std::system_error& error) {
            throw ExtractionError(std::string("what was unpacked could not be kept: ") + Text::escaped(error.what()));
        }
        checkStop();
    }

    const Path destination;
    const ExtractionLimits limits;
    const std::stop_token stop;
    Archive archive;
    ArchiveNames names;
    std::uint64_t bytesLeft = 0;
    std::size_t entryCount = 0;
    std::map<std::string, mode_t> folderPermissions;
    std::map<std::string, std::string> links;  // what each leads to
    std::size_t linkSteps = 0;
};

}  // namespace

void extractArchive(const Path& archive, const Path& destination, const ExtractionLimits& limits,
                    const std::stop_token& stop) {
    const Utf8Locale utf8;
    Extraction(archive, destination, limits, stop).run();
}
