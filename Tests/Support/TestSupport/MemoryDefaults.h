#pragma once

#include "StateKit/UserDefaults.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

/// The user's settings in memory. `values` stands for the disk: a test of a restart gives it to another object.
class MemoryDefaults : public UserDefaults {
public:
    using Value = std::variant<bool, std::string>;
    using Values = std::map<std::string, Value, std::less<>>;

    explicit MemoryDefaults(Values values = {}) : values(std::move(values)) {}

    void registerDefaults(const std::map<std::string, bool>& defaults) override {
        for (const auto& [key, value] : defaults) registered[key] = value;
    }
    bool boolForKey(std::string_view key) const override {
        if (const auto set = values.find(key); set != values.end())
            if (const bool* value = std::get_if<bool>(&set->second)) return *value;
        const auto usual = registered.find(key);
        return usual != registered.end() && usual->second;
    }
    void setBool(std::string_view key, bool value) override { values.insert_or_assign(std::string(key), value); }

    std::optional<std::string> stringForKey(std::string_view key) const override {
        if (const auto set = values.find(key); set != values.end())
            if (const auto* value = std::get_if<std::string>(&set->second)) return *value;
        return std::nullopt;
    }
    void setString(std::string_view key, std::string_view value) override {
        values.insert_or_assign(std::string(key), std::string(value));
    }

    Values values;

private:
    std::map<std::string, bool, std::less<>> registered;
};
