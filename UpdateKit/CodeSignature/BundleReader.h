#pragma once

#include "CodeSignature/Seal.h"

#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

/// Looks at all that a bundle holds: hashes every file and link, and follows every link to see that it
/// stays inside.
///
/// Goes down by open folders and never through a link, so that nobody who renames things meanwhile leads
/// it elsewhere. What changes while it is read is refused; what changes afterwards, nobody sees. Owners,
/// times, extended attributes and the inherited group of a folder (set-group-ID) are not looked at.
///
/// One object for one reading. Blocks for as long as the disk takes; any thread.
class BundleReader {
public:
    /// @param bundle    an open folder, borrowed
    /// @param expected  what it has to be, borrowed; null: whatever it is. With it, nothing is hashed
    ///                  that differs in kind, mode or size already.
    BundleReader(int bundle, const Seal* expected);

    /// @return everything but the folder of the seal, in no order
    /// @throws CodeSignatureError filesDiffer   the first difference from what was expected
    /// @throws CodeSignatureError unsealable    what has no place in a bundle: devices, pipes, set-user-ID,
    ///         a link that leads out, into nothing or in a circle, too many entries
    /// @throws CodeSignatureError unreadable
    std::vector<SealEntry> read();

private:
    void readFolder(int folder, const std::string& path, unsigned depth);
    void readEntry(int folder, const std::string& name, const std::string& path, unsigned depth);
    void readFile(int folder, const std::string& name, SealEntry entry, const struct stat& seen);
    void readLink(int folder, const std::string& name, SealEntry entry);

    /// Counts, and compares what is known before the contents are.
    void meet(const SealEntry& entry);
    /// Compares the contents, and keeps the entry.
    void keep(SealEntry entry);
    void checkNothingMissing() const;

    const int bundle;
    const Seal* const expected;
    Sha256 hash;
    Bytes buffer;
    std::vector<SealEntry> entries;
    std::map<std::string, std::string> targets;  // of the links, by path
    std::uint64_t total = 0;                     // bytes of the files so far
    std::size_t met = 0;
};
