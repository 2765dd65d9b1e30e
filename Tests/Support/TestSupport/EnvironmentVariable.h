#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

/// Gives an environment variable another value, or none, for as long as this object lives.
class EnvironmentVariable {
public:
    EnvironmentVariable(const char* name, std::optional<std::string> value) : name(name) {
        if (const char* was = std::getenv(name)) before = was;
        set(value);
    }
    ~EnvironmentVariable() { set(before); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

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
