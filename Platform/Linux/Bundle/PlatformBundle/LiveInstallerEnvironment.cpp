#include "PlatformBundle/LiveInstallerEnvironment.h"

#include "PlatformBundle/DownloadMarks.h"
#include "PlatformBundle/RunningProcess.h"
#include "PlatformBundle/Spawn.h"
#include "UpdateKit/InstallerServiceError.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using Path = std::filesystem::path;

/// What the operations of one request share.
struct Request {
    std::optional<RunningProcess> process;
    std::optional<LaunchContext> context;
    bool wasAsked = false;  // whether the process was looked for; if so, and without `process`, it was gone
};

InstallerServiceError terminationFailed(const std::string& why) {
    return InstallerServiceError(InstallerServiceError::Code::processTerminationFailed, why);
}

/// Whether a running program was started from the application, or from the one before, which lay in its place until
/// an update moved it away. That may be, since several processes may run from one bundle, and an update ends only the
/// one that has asked for it.
bool isOf(const Path& program, const Path& application) {
    const Path whole = std::filesystem::canonical(application);
    const auto [end, rest] = std::mismatch(whole.begin(), whole.end(), program.begin(), program.end());
    if (end == whole.end()) return true;
    if (std::next(end) != whole.end() || rest == program.end()) return false;
    std::string_view name = rest->native();
    const std::string start = whole.stem().native() + ".previous-";
    constexpr std::string_view ending = ".app";
    if (!name.starts_with(start) || !name.ends_with(ending)) return false;
    name.remove_prefix(start.size());
    name.remove_suffix(std::min(ending.size(), name.size()));
    return !name.empty() && name.find_first_not_of("0123456789") == name.npos;
}

/// The environment of the process that is replaced, without what that process has wiped of it, and with our
/// JOURNAL_STREAM: this variable says whether the output goes to the journal, and the new process has our output.
std::vector<std::string> inherited(std::vector<std::string> environment) {
    const std::string name = "JOURNAL_STREAM=";
    std::erase_if(environment, [&](const std::string& each) {
        return each.starts_with(name) || each.find('=') == std::string::npos;
    });
    if (const char* own = std::getenv("JOURNAL_STREAM")) environment.push_back(name + own);
    return environment;
}

void terminate(Request& request, pid_t number, const Path& application) {
    try {
        request.wasAsked = true;
        request.process = RunningProcess::open(number);
        if (!request.process || !request.process->signal(0)) return;
        request.context = request.process->launchContext();
        if (!request.context) return;
        if (!isOf(request.context->executable, application)) {
            request.process.reset();
            throw terminationFailed("process " + std::to_string(number) + " does not run from " + application.native());
        }
        (void)request.process->signal(SIGTERM);
    } catch (const std::system_error& error) {
        request.process.reset();
        throw terminationFailed(error.code().message());
    }
}

bool isRunning(const Request& request, pid_t number) {
    if (request.process) return request.process->isRunning();
    return !request.wasAsked && isProcessRunning(number);
}

pid_t relaunch(const Request& request, BundleReader& bundles, const Path& application) {
    const auto bundle = bundles.open(application);
    const auto executable = bundle ? bundle->executable() : std::nullopt;
    if (!executable) throw std::runtime_error(application.native() + " has no executable");
    SpawnRequest start;
    start.executable = *executable;
    start.hasOwnSession = true;
    start.workingFolder = "/";
    if (request.context) {
        start.arguments = request.context->arguments;
        start.environment = inherited(request.context->environment);
        std::error_code ignored;
        const Path& folder = request.context->workingFolder;
        if (std::filesystem::is_directory(folder, ignored)) start.workingFolder = folder;
    }
    // Do not wait for the new process: this one ends soon, and the system then waits for the other.
    return spawn(start);
}

}  // namespace

InstallerEnvironment liveInstallerEnvironment(std::shared_ptr<ProcessLauncher> launcher,
                                              std::shared_ptr<BundleReader> bundleReader, const Path& codeSignTool,
                                              std::function<void(pid_t)> started) {
    const auto request = std::make_shared<Request>();
    InstallerEnvironment environment;
    environment.readCodeSignatureProfile = [launcher, codeSignTool](const Path& application) {
        return readCodeSignatureProfile(*launcher, codeSignTool, application, ProcessDomain::installer);
    };
    environment.removeQuarantine = [](const Path& application) { removeDownloadMarks(application); };
    environment.relaunchApp = [request, bundleReader, started](const Path& application) {
        const pid_t process = relaunch(*request, *bundleReader, application);
        if (started) started(process);
    };
    environment.terminateProcess = [request](std::int32_t process, const Path& application) {
        terminate(*request, process, application);
    };
    environment.forceTerminateProcess = [request](std::int32_t) {
        try {
            if (request->process) (void)request->process->signal(SIGKILL);
        } catch (const std::system_error&) {
            // Whether the process has ended, the caller sees by `processIsRunning`.
        }
    };
    environment.processIsRunning = [request](std::int32_t process) { return isRunning(*request, process); };
    environment.sleep = [request](double seconds) {
        const auto time = std::chrono::milliseconds(std::llround(seconds * 1000));
        if (request->process)
            (void)request->process->waitForEnd(time);
        else
            std::this_thread::sleep_for(time);
    };
    return environment;
}

Path toolBesideThisProgram(std::string_view name) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}
