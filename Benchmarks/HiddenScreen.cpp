#include "HiddenScreen.h"

#include "PlatformBundle/Spawn.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr int lineStep = 16;

// The file is an X window dump: a header of numbers of 32 bits, the highest byte first, then colours of 12 bytes
// each, then the pixels. Source: X11/XWDFile.h.
constexpr std::size_t headerSizeField = 0;
constexpr std::size_t heightField = 5;
constexpr std::size_t lineBytesField = 12;
constexpr std::size_t colourCountField = 19;
constexpr std::size_t colourBytes = 12;
constexpr std::size_t fieldCount = 25;

std::size_t field(const void* memory, std::size_t number) {
    std::uint32_t value = 0;
    std::memcpy(&value, static_cast<const char*>(memory) + number * sizeof value, sizeof value);
    return ntohl(value);
}

}  // namespace

HiddenScreen::HiddenScreen(const fs::path& folder) {
    try {
        start(folder);
        open(folder / "Xvfb_screen0");
    } catch (...) {
        stop();
        throw;
    }
}

HiddenScreen::~HiddenScreen() { stop(); }

void HiddenScreen::stop() {
    if (memory != nullptr) ::munmap(memory, memorySize);
    if (process < 0) return;
    ::kill(process, SIGTERM);
    ::waitpid(process, nullptr, 0);
}

void HiddenScreen::start(const fs::path& folder) {
    fs::create_directories(folder);
    std::array<int, 2> ends;
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe could be made");
    const FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    SpawnRequest server;
    server.executable = "/usr/bin/Xvfb";
    const std::string size = std::to_string(width) + "x" + std::to_string(height) + "x24";
    server.arguments = {"-displayfd", "1",         "-noreset",  "-screen", "0",      size,
                        "-br",        "-nocursor", "-nolisten", "tcp",     "-fbdir", folder.native()};
    server.output = writeEnd.get();
    process = spawn(server);
    writeEnd.reset();
    // Besides the number of the display the server writes warnings, for instance that a lower number is taken.
    std::string said, line;
    for (char c = 0; ::read(readEnd.get(), &c, 1) == 1;) {
        said += c;
        if (c != '\n') {
            line += c;
        } else if (!line.empty() && line.find_first_not_of("0123456789") == std::string::npos) {
            name = ":" + line;
            return;
        } else {
            line.clear();
        }
    }
    throw std::runtime_error("no X server could be started: " + said);
}

void HiddenScreen::open(const fs::path& picture) {
    const FileDescriptor file(::open(picture.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) throw std::runtime_error("there is no " + picture.native());
    memorySize = static_cast<std::size_t>(status.st_size);
    void* const mapped = ::mmap(nullptr, memorySize, PROT_READ, MAP_SHARED, file.get(), 0);
    if (mapped == MAP_FAILED) throw std::runtime_error(picture.native() + " can't be read");
    memory = mapped;
    if (memorySize < fieldCount * sizeof(std::uint32_t) || field(memory, heightField) != height)
        throw std::runtime_error(picture.native() + " holds no screen");
    lineBytes = field(memory, lineBytesField);
    pixels = field(memory, headerSizeField) + field(memory, colourCountField) * colourBytes;
    if (lineBytes < width || pixels > memorySize || (memorySize - pixels) / lineBytes < height)
        throw std::runtime_error(picture.native() + " holds not all of a screen");
    for (int number = 0; number < height; number += lineStep)
        blank.insert(blank.end(), line(number), line(number) + lineBytes);
}

const char* HiddenScreen::line(int number) const {
    return static_cast<const char*>(memory) + pixels + static_cast<std::size_t>(number) * lineBytes;
}

bool HiddenScreen::isBlank() const {
    const char* expected = blank.data();
    for (int number = 0; number < height; number += lineStep, expected += lineBytes)
        if (std::memcmp(line(number), expected, lineBytes) != 0) return false;
    return true;
}
