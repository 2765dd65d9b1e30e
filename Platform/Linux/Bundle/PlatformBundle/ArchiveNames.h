#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// The names in an archive, each judged as it comes: whether it stays inside, and agrees with those before it.
///
/// All throw `ExtractionError` for a name that is absolute, has ".." in it, lies too deep, is no UTF-8, lies
/// below a file, or is the same as an earlier one but for case.
class ArchiveNames {
public:
    explicit ArchiveNames(std::size_t maxDepth) : maxDepth(maxDepth) {}

    /// Adds the name of a file or a link, which none before may have had.
    /// @return the name, relative, without empty and "." parts
    std::string addFile(std::string_view raw);

    /// Adds the name of a folder, which may come again. @return as above; empty for the top itself
    std::string addFolder(std::string_view raw);

    /// The folder that a name lies in; empty for the top.
    static std::string parentOf(const std::string& name);

private:
    enum class Kind { file, folder };
    struct Known {
        std::string name;
        Kind kind;
    };

    std::vector<std::string_view> partsOf(std::string_view raw) const;
    std::string add(std::string_view raw, Kind kind);

    std::size_t maxDepth;
    std::map<std::string, Known> known;  // by the name with its case folded
};
