#pragma once

#include <QDBusConnection>

#include <filesystem>
#include <string>

/// Programs that the session bus starts for this user when somebody asks for their names.
namespace ServiceRegistration {

/// What stands in the file of a service.
/// Source: "Message Bus Starting Services" of the D-Bus specification, and the quoting of dbus-daemon.
/// @throws std::runtime_error  the path is not UTF-8, or the name none of a service
std::string fileText(const std::string& serviceName, const std::filesystem::path& program);

/// Writes `dbus-1/services/NAME.service` in that folder unless it says that already, and tells the
/// bus, which may not watch it. Blocks for the file alone.
/// @param program  absolute; where it lies now
/// @param dataHome  usually $XDG_DATA_HOME; a bus of a session looks into $XDG_RUNTIME_DIR too, whatever its own
///        variables say of the user's data
/// @return whether anything had to be written
/// @throws std::runtime_error  nothing is changed
bool write(const std::string& serviceName, const std::filesystem::path& program, const std::filesystem::path& dataHome,
           const QDBusConnection& bus = QDBusConnection::sessionBus());

}  // namespace ServiceRegistration
