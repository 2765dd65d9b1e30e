#include "PlatformBundle/RunningApplication.h"

std::filesystem::path applicationOf(const std::filesystem::path& executable) {
    const auto programs = executable.parent_path();
    const auto contents = programs.parent_path();
    const auto application = contents.parent_path();
    if (programs.filename() == "Linux" && contents.filename() == "Contents" && application.extension() == ".app")
        return application;
    return programs;
}

std::filesystem::path runningApplication() { return applicationOf(std::filesystem::read_symlink("/proc/self/exe")); }
