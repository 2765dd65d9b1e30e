#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

/// A variable of the environment that has another value, or none, while this lives.
class Variable {
public:
    Variable(const char* name, std::optional<std::string> value) : name(name) {
        if (const char* was = std::getenv(name)) before = was;
        set(value);
    }
    ~Variable() { set(before); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    void set(const std::optional<std::string>& value) const {
        if (value)
            setenv(name, value->c_str(), 1);
        else
            unsetenv(name);
    }

    const char* name;
    std::optional<std::string> before;
};

/// An empty folder that goes with its holder.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "platform.XXXXXX").string();
        path = mkdtemp(name.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    std::filesystem::path path;
};
