#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Why the arguments make no sense, in one line.
class DesktopOptionsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The arguments of the desktop client.
struct DesktopOptions {
    /// An option's value may stand behind it or behind "=". Of a repeated option the last counts.
    /// @throws DesktopOptionsError
    static DesktopOptions parse(const std::vector<std::string_view>& arguments);

    /// The text of --help, with its last line end.
    static std::string_view help();

    std::optional<std::filesystem::path> dataDir;
    std::optional<std::filesystem::path> secretFile;
    std::optional<std::string> server;
    std::vector<std::string> urls;  // links of the program's scheme, as a desktop passes them
    bool wantsHelp = false;
    bool wantsVersion = false;
};
