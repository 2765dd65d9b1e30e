#pragma once

#include <QDBusConnection>

#include <filesystem>
#include <string>

/// Programs that the session bus starts for this user when somebody asks for their names.
namespace ServiceRegistration {

/// The text of the file of a service.
/// Source: "Message Bus Starting Services" of the D-Bus specification, and the quoting of dbus-daemon.
/// @throws std::runtime_error  the path is not UTF-8 or not absolute, or the name can't be a service's
std::string fileText(const std::string& serviceName, const std::filesystem::path& program);

/// Writes `dbus-1/services/NAME.service` in that folder unless the file has this text already, and tells the
/// bus, which may not watch the folder. Blocks only for writing the file.
/// @param program  absolute; where it lies now
/// @param dataHome  usually $XDG_DATA_HOME; the bus of a session also looks into $XDG_RUNTIME_DIR, even if its own
///        environment has another $XDG_DATA_HOME
/// @return whether anything had to be written
/// @throws std::runtime_error  it failed, and nothing is changed
bool write(const std::string& serviceName, const std::filesystem::path& program, const std::filesystem::path& dataHome,
           const QDBusConnection& bus = QDBusConnection::sessionBus());

}  // namespace ServiceRegistration
