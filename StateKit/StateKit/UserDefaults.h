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

    /// Says which values are read under those keys as long as none is set. They are not written anywhere.
    virtual void registerDefaults(const std::map<std::string, bool>& defaults) = 0;
    /// The value, else the registered default, else false. A value that is no boolean counts as none.
    virtual bool boolForKey(std::string_view key) const = 0;
    virtual void setBool(std::string_view key, bool value) = 0;

    /// Nothing if there is no value, or if it is no text.
    virtual std::optional<std::string> stringForKey(std::string_view key) const = 0;
    virtual void setString(std::string_view key, std::string_view value) = 0;
};
