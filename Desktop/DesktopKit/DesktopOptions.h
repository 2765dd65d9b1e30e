#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The arguments of the desktop client.
struct DesktopOptions {
    /// An option's value may be the next argument or follow a "=". The last of repeated options counts.
    /// @throws ArgumentsError
    [[nodiscard]] static DesktopOptions parse(const std::vector<std::string_view>& arguments);

    /// The text of --help, with its last line end.
    static std::string_view help();

    std::optional<std::filesystem::path> dataDir;
    std::optional<std::filesystem::path> secretFile;
    std::optional<std::string> server;
    std::vector<std::string> urls;  // links of the program's scheme, as a desktop passes them
    bool wantsHelp = false;
    bool wantsVersion = false;
};
