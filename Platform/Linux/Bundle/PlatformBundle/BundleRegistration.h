#pragma once

#include "UpdateKit/AppBundle.h"
#include "UpdateKit/ProcessRunner.h"

#include <filesystem>
#include <string>

/// Makes a bundle known to its user's desktop, since nobody installs it: its entry in the menu, which also opens
/// the addresses of the scheme "vimble", and its icons.
///
/// Each is a file in the user's data folder that says where the bundle lies now, and is written only if it would
/// change, all of it or nothing. Of several copies the one that was started last has it: each writes its own place
/// at its start, and none looks after it again.
///
/// Any thread; blocks, for a home may lie on another machine.
class BundleRegistration {
public:
    /// @param dataHome  such as ~/.local/share
    /// @param launcher  runs the desktop's tool that lists who opens what, where there is one
    BundleRegistration(std::filesystem::path dataHome, ProcessLauncher& launcher);

    /// Writes the entry, then the icons.
    /// @return whether anything had to be written
    /// @throws std::runtime_error  why not; what came before that is written
    bool add(const AppBundle& bundle);

    /// What starts a program with the words that it is given, as "Exec" of a desktop entry wants it: quoted, and
    /// escaped twice; by way of a shell if its path has percent signs, which desktops do not find otherwise.
    /// @throws std::runtime_error  no entry can name such a path: it is not UTF-8, or has control characters
    static std::string exec(const std::filesystem::path& program, const std::string& fieldCode);

    /// A bundle's entry, made for where the bundle lies.
    /// @param entry  as it stands in the bundle
    /// @throws std::runtime_error  as above
    static std::string entryFor(const std::filesystem::path& program, const std::string& entry);

private:
    const std::filesystem::path dataHome;
    ProcessLauncher& launcher;
};
