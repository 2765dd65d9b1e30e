#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The arguments of the terminal client.
struct TerminalOptions {
    /// An option's value is the next argument, or follows "=". If an option is repeated, the last one counts.
    /// @throws ArgumentsError
    [[nodiscard]] static TerminalOptions parse(const std::vector<std::string_view>& arguments);

    /// The text of --help; it ends with a line end.
    static std::string_view help();

    std::optional<std::filesystem::path> dataDir;
    std::optional<std::filesystem::path> secretFile;
    std::optional<std::string> server;
    bool wantsPublicKey = false;
    bool isJson = false;
    bool isDebug = false;
    bool wantsHelp = false;
    bool wantsVersion = false;
};
