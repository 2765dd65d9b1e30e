#include "QtTestSupport/PrivateBus.h"

#include "Base/Check.h"
#include "Base/FileDescriptor.h"

#include <QDBusConnectionInterface>
#include <QDBusReply>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char* configuration = R"(<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=/tmp</listen>
  <standard_session_servicedirs/>
  <policy context="default">
    <allow user="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

std::vector<std::string> environmentWith(const std::filesystem::path& dataHome) {
    std::vector<std::string> result;
    for (char** each = environ; *each != nullptr; ++each) {
        const std::string text = *each;
        if (!text.starts_with("XDG_DATA_HOME=") && !text.starts_with("DBUS_SESSION_BUS_ADDRESS="))
            result.push_back(text);
    }
    result.push_back("XDG_DATA_HOME=" + dataHome.native());
    return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

PrivateBus::PrivateBus(const std::filesystem::path& folder, std::optional<uid_t> user) : folder(folder) {
    std::filesystem::create_directories(dataHome());
    const std::filesystem::path config = folder / "bus.conf";
    std::ofstream(config) << configuration;
    const FileDescriptor log(::open((folder / "log").c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0666));
    std::array<int, 2> ends;
    check(log.get() >= 0 && ::pipe2(ends.data(), O_CLOEXEC) == 0, "a bus's files could not be opened");
    const FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    std::vector<std::string> arguments{"dbus-daemon", "--nofork", "--nopidfile", "--print-address=1",
                                       "--config-file=" + config.native()};
    std::vector<std::string> environment = environmentWith(dataHome());
    const std::vector<char*> argumentPointers = pointersTo(arguments);
    const std::vector<char*> environmentPointers = pointersTo(environment);
    process = ::fork();
    if (process == 0) {
        ::dup2(writeEnd.get(), STDOUT_FILENO);
        ::dup2(log.get(), STDERR_FILENO);
        if (user && (::setgid(*user) != 0 || ::setuid(*user) != 0)) ::_exit(126);
        ::execvpe(argumentPointers[0], argumentPointers.data(), environmentPointers.data());
        ::_exit(127);
    }
    writeEnd.reset();
    for (char c = 0; ::read(readEnd.get(), &c, 1) == 1 && c != '\n';) _address += c;
    check(!_address.empty(), "no bus could be started");
}

PrivateBus::~PrivateBus() {
    if (!connectionName.isEmpty()) QDBusConnection::disconnectFromBus(connectionName);
    kill();
}

void PrivateBus::kill() {
    if (process < 0) return;
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
    process = -1;
    // Remove the socket, since the bus had no time to do so.
    const std::string key = "path=";
    const std::size_t begin = _address.find(key);
    if (begin == std::string::npos) return;
    const std::string rest = _address.substr(begin + key.size());
    ::unlink(rest.substr(0, rest.find(',')).c_str());
}

QDBusConnection PrivateBus::connection() {
    static int count = 0;
    if (!connectionName.isEmpty()) return QDBusConnection(connectionName);
    connectionName = QStringLiteral("test %1").arg(++count);
    return QDBusConnection::connectToBus(QString::fromStdString(_address), connectionName);
}

std::optional<pid_t> PrivateBus::processOf(const std::string& name) {
    const QDBusReply<uint> reply = connection().interface()->servicePid(QString::fromStdString(name));
    if (!reply.isValid()) return std::nullopt;
    return static_cast<pid_t>(reply.value());
}

std::string PrivateBus::log() const {
    std::ifstream file(folder / "log");
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> PrivateBus::logLines(const std::string& word) const {
    std::vector<std::string> result;
    std::istringstream lines(log());
    for (std::string line; std::getline(lines, line);)
        if (line.find(word) != std::string::npos) result.push_back(line);
    return result;
}
