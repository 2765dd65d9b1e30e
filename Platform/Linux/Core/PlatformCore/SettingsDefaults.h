#pragma once

#include "StateKit/UserDefaults.h"

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <QSettings>

/// The user's settings in a file of their own, "UserDefaults.ini", which the user may edit between two runs.
///
/// A new value is written at the event loop's next turn, or when this object dies, whichever is first. A
/// boolean is written as "true" or "false"; "1" and "0", letters of any case and blanks around them are read
/// too. A line that can't be read counts as if it were not there.
///
/// If the file can't be written, the destructor logs it, and the settings of this run are lost.
class SettingsDefaults : public UserDefaults {
public:
    /// @param dataDir  the folder where the file lies; without one it lies under the application's identifier
    ///        in the user's folder for settings (XDG_CONFIG_HOME)
    explicit SettingsDefaults(const std::optional<std::filesystem::path>& dataDir);
    ~SettingsDefaults() override;

    void registerDefaults(const std::map<std::string, bool>& defaults) override;
    bool boolForKey(std::string_view key) const override;
    void setBool(std::string_view key, bool value) override;
    std::optional<std::string> stringForKey(std::string_view key) const override;
    void setString(std::string_view key, std::string_view value) override;

private:
    QSettings settings;
    std::map<std::string, bool, std::less<>> registered;
};
