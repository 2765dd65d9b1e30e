#include "PlatformCore/SettingsDefaults.h"

#include "QtText/QtText.h"
#include "StateKit/Log.h"

#include <QVariant>

namespace {

const Log settingsLog("zorvane.Vimble", "SettingsDefaults");

/// Reads a boolean. `QVariant` itself would take any text for true except "false", "0" and the empty one.
std::optional<bool> boolIn(const QVariant& value) {
    if (value.typeId() == QMetaType::Bool) return value.toBool();
    if (value.typeId() != QMetaType::QString) return std::nullopt;
    const QString text = value.toString().trimmed().toLower();
    if (text == QLatin1String("true") || text == QLatin1String("1")) return true;
    if (text == QLatin1String("false") || text == QLatin1String("0")) return false;
    return std::nullopt;
}

QSettings settingsIn(const std::optional<std::filesystem::path>& dataDir) {
    return dataDir ? QSettings(toQt((*dataDir / "UserDefaults.ini").native()), QSettings::IniFormat)
                   : QSettings(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("zorvane.Vimble"),
                               QStringLiteral("UserDefaults"));
}

}  // namespace

SettingsDefaults::SettingsDefaults(const std::optional<std::filesystem::path>& dataDir)
    : settings(settingsIn(dataDir)) {}

SettingsDefaults::~SettingsDefaults() {
    settings.sync();
    if (settings.status() == QSettings::AccessError)
        settingsLog.error("The settings could not be written to " + fromQt(settings.fileName()));
}

void SettingsDefaults::registerDefaults(const std::map<std::string, bool>& defaults) {
    for (const auto& [key, value] : defaults) registered.insert_or_assign(key, value);
}

bool SettingsDefaults::boolForKey(std::string_view key) const {
    if (const auto value = boolIn(settings.value(toQt(key)))) return *value;
    const auto usual = registered.find(key);
    return usual != registered.end() && usual->second;
}

void SettingsDefaults::setBool(std::string_view key, bool value) { settings.setValue(toQt(key), value); }

std::optional<std::string> SettingsDefaults::stringForKey(std::string_view key) const {
    const QVariant value = settings.value(toQt(key));
    if (value.typeId() != QMetaType::QString) return std::nullopt;
    return fromQt(value.toString());
}

void SettingsDefaults::setString(std::string_view key, std::string_view value) {
    settings.setValue(toQt(key), toQt(value));
}
