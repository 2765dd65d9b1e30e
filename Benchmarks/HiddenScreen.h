#pragma once

#include "PlatformBundle/FileDescriptor.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

/// An X server whose screen nobody sees, without a window manager, cursor or background.
///
/// It keeps what it shows in a file, which is looked at here as memory: nothing is asked of the server, so that
/// looking holds up nobody who paints.
class HiddenScreen {
public:
    static constexpr int width = 1280;
    static constexpr int height = 800;

    /// Returns when there can be windows.
    /// @param folder  takes its files
    /// @throws std::runtime_error  there is no X server, or it shows nothing that can be read
    explicit HiddenScreen(const std::filesystem::path& folder);
    ~HiddenScreen();
    HiddenScreen(const HiddenScreen&) = delete;
    HiddenScreen& operator=(const HiddenScreen&) = delete;

    /// What goes into the variable DISPLAY.
    const std::string& display() const { return name; }

    /// Whether nobody has painted anything, or all that did has gone. One line in sixteen is looked at, which no
    /// window escapes.
    bool isBlank() const;

private:
    void start(const std::filesystem::path& folder);
    void stop();
    void open(const std::filesystem::path& picture);
    const char* line(int number) const;

    std::string name;
    pid_t process = -1;
    void* memory = nullptr;
    std::size_t memorySize = 0;
    std::size_t pixels = 0;     // where they begin in the memory
    std::size_t lineBytes = 0;  // of one line
    std::vector<char> blank;    // the lines that are looked at, as they were when nobody had painted
};
