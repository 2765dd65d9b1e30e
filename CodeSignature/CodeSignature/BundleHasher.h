#pragma once

#include "CodeSignature/Seal.h"

#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

/// Reads all that a bundle holds: hashes every file and link, and follows every link to see that it
/// stays inside.
///
/// Descends by open folders and never through a link, so that somebody who renames things meanwhile can't
/// lead it elsewhere. A file or folder that changes while it is read is refused; a later change is not
/// seen. Owners, times, extended attributes and the inherited group of a folder (set-group-ID) are ignored.
///
/// One object does one reading. Blocks for as long as the disk takes; any thread.
class BundleHasher {
public:
    /// @param bundle    an open folder, borrowed
    /// @param expected  what the bundle has to hold, borrowed; null: anything. A file that already differs
    ///                  from it in kind, mode or size is refused without being hashed.
    BundleHasher(int bundle, const Seal* expected);

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

    /// Counts the entry, and compares what is known of it before its contents are read.
    void meet(const SealEntry& entry);
    /// Compares the entry with its contents, and keeps it.
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
