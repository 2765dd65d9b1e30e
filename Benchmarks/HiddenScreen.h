#pragma once

#include "Base/FileDescriptor.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

/// An X server with a virtual screen, without a window manager, cursor or background.
///
/// The server keeps the screen in a file, which is mapped here. Looking at the screen asks nothing of the server, so
/// it does not slow down the program that paints.
class HiddenScreen {
public:
    static constexpr int width = 1280;
    static constexpr int height = 800;

    /// Returns when windows can be shown.
    /// @param folder  takes the server's files
    /// @throws std::runtime_error  there is no X server, or it shows nothing that can be read
    explicit HiddenScreen(const std::filesystem::path& folder);
    ~HiddenScreen();
    HiddenScreen(const HiddenScreen&) = delete;
    HiddenScreen& operator=(const HiddenScreen&) = delete;

    /// The value for the environment variable DISPLAY.
    const std::string& display() const { return name; }

    /// Whether the screen shows nothing: no window, or none any more. Looks at every sixteenth line, which is enough
    /// to find any window.
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
    std::size_t pixels = 0;     // where the pixels begin in the memory
    std::size_t lineBytes = 0;  // the length of one line
    std::vector<char> blank;    // the lines that are looked at, as they are on an empty screen
};
