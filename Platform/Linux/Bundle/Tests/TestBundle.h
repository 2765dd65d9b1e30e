#pragma once

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <sys/stat.h>

/// A small bundle on disk, for tests, with what makes copying hard: links, permissions, a closed folder, names of
/// all kinds, and contents longer than any buffer.
inline void makeTestBundle(const std::filesystem::path& path, const std::string& version) {
    namespace fs = std::filesystem;
    fs::create_directories(path / "Contents" / "Linux");
    fs::create_directories(path / "Contents" / "Frameworks" / "plugins");
    fs::create_directories(path / "Contents" / "empty");
    const auto write = [&](const fs::path& name, const std::string& text) {
        std::ofstream(path / "Contents" / name, std::ios::binary) << text;
    };
    write("Info.plist",
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
          "<key>CFBundleExecutable</key><string>Vimble</string>"
          "<key>CFBundleShortVersionString</key><string>" +
              version + "</string></dict></plist>\n");
    write("Linux/Vimble", "#!/bin/sh\necho " + version + "\n");
    write("Frameworks/libx.so.1", std::string(300'000, version.back()));
    write("Frameworks/plugins/a b \u00E9.so", version);
    write("empty.txt", "");
    fs::create_symlink("libx.so.1", path / "Contents" / "Frameworks" / "libx.so");
    fs::create_directory_symlink("Frameworks/plugins", path / "Contents" / "plugins");
    ::chmod((path / "Contents" / "Linux" / "Vimble").c_str(), 0755);
    ::chmod((path / "Contents" / "Info.plist").c_str(), 0444);
    ::chmod((path / "Contents" / "Frameworks" / "plugins").c_str(), 0555);
}

/// Every file, link and folder below a path, with its permissions and contents: equal for equal trees.
inline std::map<std::string, std::string> treeOf(const std::filesystem::path& path) {
    namespace fs = std::filesystem;
    std::map<std::string, std::string> result;
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
        struct stat status {};
        ::lstat(entry.path().c_str(), &status);
        std::string& value = result[entry.path().lexically_relative(path).native()];
        value = std::to_string(status.st_mode) + " ";
        if (S_ISLNK(status.st_mode)) value += fs::read_symlink(entry.path()).native();
        if (!S_ISREG(status.st_mode)) continue;
        std::ifstream file(entry.path(), std::ios::binary);
        value.append(std::istreambuf_iterator<char>(file), {});
    }
    return result;
}
