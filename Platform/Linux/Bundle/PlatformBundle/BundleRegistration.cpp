#include "PlatformBundle/BundleRegistration.h"

#include "PlatformBundle/RegisteredFile.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr const char* entryName = "zorvane.Vimble.desktop";
constexpr const char* listingTool = "/usr/bin/update-desktop-database";

/// A text as the value of a key: backslashes begin an escape there.
std::string valueOf(std::string_view text) {
    std::string value;
    for (const char c : text) value.append(c == '\\' ? 2 : 1, c);
    return value;
}

/// An argument of a desktop entry's command.
std::string argument(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') result += '\\';
        if (c == '%') result += '%';
        result += c;
    }
    return result + "\"";
}

std::vector<fs::path> iconsIn(const fs::path& folder) {
    std::vector<fs::path> icons;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file() && (entry.path().extension() == ".png" || entry.path().extension() == ".svg"))
            icons.push_back(entry.path());
    return icons;
}

}  // namespace

BundleRegistration::BundleRegistration(fs::path dataHome, ProcessLauncher& launcher)
    : dataHome(std::move(dataHome)), launcher(launcher) {}

bool BundleRegistration::add(const AppBundle& bundle) {
    const auto program = bundle.executable();
    if (!program) throw std::runtime_error(bundle.path.native() + " names no executable");
    const fs::path resources = bundle.path / "Contents" / "Resources";
    const fs::path applications = dataHome / "applications";
    const bool isNewEntry = RegisteredFile::update(applications / entryName,
                                                   entryFor(*program, RegisteredFile::read(resources / entryName)));

    bool isNewIcon = false;
    const fs::path icons = dataHome / "icons";
    for (const fs::path& icon : iconsIn(resources / "icons"))
        isNewIcon |=
            RegisteredFile::update(icons / icon.lexically_relative(resources / "icons"), RegisteredFile::read(icon));
    // By the time of a theme's folder, desktops see whether what they have cached of it still holds.
    if (isNewIcon) ::utimensat(AT_FDCWD, (icons / "hicolor").c_str(), nullptr, 0);

    // Without the tool the entry is still in the menu; only links of our scheme don't lead here.
    std::error_code ignored;
    if (isNewEntry && fs::exists(listingTool, ignored)) {
        try {
            // Its status covers the entries of all applications in the folder, so that it says nothing of ours.
            static_cast<void>(launcher.launch(listingTool, {"-q", applications.native()}));
        } catch (const std::exception& error) {
            throw std::runtime_error(std::string(listingTool) + ": " + error.what());
        }
    }
    return isNewEntry || isNewIcon;
}

std::string BundleRegistration::exec(const fs::path& program, const std::string& fieldCode) {
    RegisteredFile::requirePlain(program);
    std::string command = argument(program.native());
    // Desktops look whether the program is there before they turn "%%" into "%", and leave out the entry if it is not.
    // They do not look for arguments, so make the program an argument of the shell.
    if (program.native().find('%') != std::string::npos)
        command = "/bin/sh -c " + argument(R"(exec "$0" "$@")") + " " + command;
    if (!fieldCode.empty()) command += " " + fieldCode;
    return valueOf(command);
}

std::string BundleRegistration::entryFor(const fs::path& program, const std::string& entry) {
    std::string result;
    for (std::size_t begin = 0; begin < entry.size();) {
        const std::size_t end = std::min(entry.find('\n', begin), entry.size());
        const std::string_view line(entry.data() + begin, end - begin);
        begin = end + 1;
        if (line.starts_with("Exec=")) {
            // With "TryExec", a desktop leaves the entry out once its bundle has been thrown away.
            result += "Exec=" + exec(program, "%U") + "\nTryExec=" + valueOf(program.native()) + "\n";
        } else if (!line.starts_with("TryExec=")) {
            result += std::string(line) + "\n";
        }
    }
    return result;
}
