#include "PlatformCore/ServiceRegistration.h"

#include "PlatformBundle/RegisteredFile.h"
#include "Text/Text.h"

#include <QDBusMessage>

#include <stdexcept>
#include <string_view>

namespace {

constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

/// Quotes a text so that a shell reads it as one word. Uses no backslashes: buses differ on what they mean in
/// such a file.
std::string quoted(const std::string& text) {
    if (text.find_first_not_of(std::string(letters) + "/._-+") == std::string::npos) return text;
    std::string result = "'";
    for (const char c : text) result += c == '\'' ? std::string("'\"'\"'") : std::string(1, c);
    return result + "'";
}

/// Escapes a text as a value of a desktop file.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '\\': result += "\\\\"; break;
            case '\n': result += "\\n"; break;
            case '\r': result += "\\r"; break;
            case '\t': result += "\\t"; break;
            default: result += c;
        }
    }
    return result;
}

}  // namespace

std::string ServiceRegistration::fileText(const std::string& serviceName, const std::filesystem::path& program) {
    // Be strict, since the name becomes a file's name.
    if (serviceName.empty() || serviceName.front() == '.' ||
        serviceName.find_first_not_of(std::string(letters) + "._-") != std::string::npos)
        throw std::runtime_error("no name of a service: " + Text::escaped(serviceName));
    // The bus would refuse such a file silently.
    if (!program.is_absolute() || !Text::isUtf8(program.native()))
        throw std::runtime_error("the session bus can't start " + Text::escaped(program.native()));
    return "[D-BUS Service]\nName=" + serviceName + "\nExec=" + escaped(quoted(program.native())) + "\n";
}

bool ServiceRegistration::write(const std::string& serviceName, const std::filesystem::path& program,
                                const std::filesystem::path& dataHome, const QDBusConnection& bus) {
    const std::string text = fileText(serviceName, program);
    if (!RegisteredFile::update(dataHome / "dbus-1" / "services" / (serviceName + ".service"), text)) return false;
    bus.send(QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                            QStringLiteral("/org/freedesktop/DBus"),
                                            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ReloadConfig")));
    return true;
}
