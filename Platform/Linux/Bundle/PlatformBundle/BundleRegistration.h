#pragma once

#include "UpdateKit/AppBundle.h"
#include "UpdateKit/ProcessRunner.h"

#include <filesystem>
#include <string>

/// Makes a bundle known to its user's desktop, since nobody installs it: its entry in the menu, which also opens
/// the addresses of the scheme "vimble", and its icons.
///
/// Each is a file in the user's data folder that says where the bundle lies now. It is written only if it would
/// change, as a whole or not at all. Of several copies of the application, the one that was started last is
/// registered: each writes its own place at its start, and not later.
///
/// Any thread; blocks, since a home may lie on another machine.
class BundleRegistration {
public:
    /// @param dataHome  such as ~/.local/share
    /// @param launcher  runs the desktop's tool that lists which program opens what, if the tool is there
    BundleRegistration(std::filesystem::path dataHome, ProcessLauncher& launcher);

    /// Writes the entry, then the icons.
    /// @return whether anything had to be written
    /// @throws std::runtime_error  why a file was not written; those written before it stay
    bool add(const AppBundle& bundle);

    /// The value of "Exec" in a desktop entry, which starts a program with what the field code stands for: quoted,
    /// and escaped twice. A program whose path has percent signs is started by a shell, since desktops would not
    /// find it.
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
