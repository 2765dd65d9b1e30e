#pragma once

#include "RelayShell/ServeOptions.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// The command line can't be understood: one line for people.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The command line, understood.
struct CommandLine {
    enum class Command { help, version, serve, add, remove, list, backUp };

    Command command = Command::help;
    std::filesystem::path database;
    ServeOptions serve;
    std::vector<std::string> keys;              // add, remove
    std::optional<std::filesystem::path> file;  // add --file, backup FILE
    bool isAdmin = false;                       // add

    /// @param words  what follows the program's name
    /// @throws UsageError
    [[nodiscard]] static CommandLine parsed(const std::vector<std::string>& words);
};

/// What `--help` prints.
std::string usageText();
