#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

/// The user's own settings of this program, by key. They last from one run to the next.
///
/// Reading and writing never fail for the caller: what can't be written is lost at the program's end, and
/// until then the value set is the value read. Main thread only.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    /// What is read under those keys for as long as nothing is set. Not written anywhere.
    virtual void registerDefaults(const std::map<std::string, bool>& defaults) = 0;
    /// A value that is no boolean counts as none. Without a value the default; without a default false.
    virtual bool boolForKey(std::string_view key) const = 0;
    virtual void setBool(std::string_view key, bool value) = 0;

    /// Nothing without a value, or where it is no text.
    virtual std::optional<std::string> stringForKey(std::string_view key) const = 0;
    virtual void setString(std::string_view key, std::string_view value) = 0;
};
