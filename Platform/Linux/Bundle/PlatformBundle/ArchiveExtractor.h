#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <stop_token>

/// Why an archive was not unpacked, in one line for the log.
class ExtractionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What an archive may cost.
struct ExtractionLimits {
    std::uint64_t maxBytes = std::uint64_t(4) << 30;  // unpacked, all files together
    std::uint64_t maxRatio = 20;                      // times the archive's own size
    std::size_t maxEntries = 100'000;
    std::size_t maxDepth = 64;  // folders in one another
};

/// Unpacks a zip archive that may be anybody's.
///
/// Permissions and links are kept, except the set-uid, set-gid and sticky bits; the owner may always enter and
/// change the folders. Refused are: paths that are absolute or have ".." in them, a path twice, two paths that
/// differ only in case, a file below what is a file or link, links that lead out of the destination, on their
/// own or through other links, hard links, devices, pipes and sockets, encrypted files, and whatever exceeds
/// the limits. Links are made last, so nothing is ever written through one.
///
/// Blocks; any thread. On failure a part may lie in the destination: the caller throws it away.
/// @param destination  an empty folder, in which nobody else is at work
/// @param stop  asked before each piece that is written, since the end of the program can't wait for a whole archive
/// @throws ExtractionError
void extractArchive(const std::filesystem::path& archive, const std::filesystem::path& destination,
                    const ExtractionLimits& limits = {}, const std::stop_token& stop = {});
