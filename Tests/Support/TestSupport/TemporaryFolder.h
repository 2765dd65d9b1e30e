#pragma once

#include "Base/Check.h"

#include <cstdlib>
#include <filesystem>
#include <string>

/// A new folder, which is removed with its contents when this object dies.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "vimble-test-XXXXXX").native();
        check(::mkdtemp(name.data()) != nullptr, "no temporary folder could be made");
        path = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::filesystem::path path;
};
