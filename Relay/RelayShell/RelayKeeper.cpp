#include "RelayShell/RelayKeeper.h"

#include "Base/Check.h"
#include "RelayShell/Server.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::filesystem::path beside(const std::filesystem::path& file, const char* suffix) {
    return std::filesystem::path(file) += suffix;
}

sigset_t keptSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
    return set;
}

/// To be called in a child process: the system sends it the signal when the keeper dies for any reason.
void followKeeper(int signal, pid_t keeperProcess) {
    ::prctl(PR_SET_PDEATHSIG, signal);
    // The keeper may have died before that call; then no signal comes.
    if (::getppid() != keeperProcess) ::_exit(1);
}

/// Waits for the end of a child. @return its exit status; 1 if it was killed
int statusOf(pid_t process) {
    int status = 0;
    while (::waitpid(process, &status, 0) < 0) check(errno == EINTR, "A child can't be waited for.");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

RelayKeeper::RelayKeeper(const ServeOptions& options)
    : options(options),
      users(*options.untilReleased),
      start(beside(*options.untilReleased, ".start")),
      keeper(beside(*options.untilReleased, ".keeper")),
      relay(beside(*options.untilReleased, ".relay")) {}

int RelayKeeper::run() {
    start.take();
    if (!keeper.tryTake()) {
        std::printf("vimble-relay already listening on %s\n", keeper.text().c_str());
        std::fflush(stdout);
        return 0;
    }
    // Block the signals that `keep` waits for, so that one that arrives before then stays pending.
    const sigset_t set = keptSignals();
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    if (!startRelay()) return 1;
    keeper.setText(address);
    watchUsers();
    start.giveBack();
    return keep();
}

int RelayKeeper::keep() {
    using Clock = std::chrono::steady_clock;
    const sigset_t set = keptSignals();
    auto started = Clock::now();
    int quickDeaths = 0;
    while (true) {
        const int signal = ::sigwaitinfo(&set, nullptr);
        if (signal == SIGTERM || signal == SIGINT) return end();
        if (signal == SIGHUP) ::kill(relayProcess, SIGHUP);
        if (::waitpid(watchProcess, nullptr, WNOHANG) == watchProcess) {
            watchProcess = -1;
            return end();
        }
        if (::waitpid(relayProcess, nullptr, WNOHANG) != relayProcess) continue;

        const std::chrono::duration<double> lived = Clock::now() - started;
        quickDeaths = lived.count() > quickDeath ? 0 : quickDeaths + 1;
        if (quickDeaths == mostQuickDeaths) return 1;
        // A keeper that starts meanwhile must wait until there is a relay again.
        start.take();
        started = Clock::now();
        if (!startRelay()) return 1;
        start.giveBack();
    }
}

int RelayKeeper::end() {
    // A keeper that starts now must not find this relay: it is ending.
    start.take();
    if (watchProcess > 0) {
        ::kill(watchProcess, SIGKILL);
        statusOf(watchProcess);
    }
    ::kill(relayProcess, SIGTERM);
    return statusOf(relayProcess);
}

bool RelayKeeper::startRelay() {
    // Flush before the fork: the child would write a copy of unwritten output too.
    std::fflush(nullptr);
    int pipe[2];
    check(::pipe2(pipe, O_CLOEXEC) == 0, "There is no pipe.");
    const pid_t self = ::getpid();
    relayProcess = ::fork();
    check(relayProcess >= 0, "There is no process.");
    if (relayProcess == 0) {
        ::close(pipe[0]);
        serve(pipe[1], self);
    }
    ::close(pipe[1]);
    std::string found;
    char bytes[300];
    while (true) {
        const auto count = ::read(pipe[0], bytes, sizeof bytes);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        found.append(bytes, static_cast<std::size_t>(count));
    }
    ::close(pipe[0]);
    if (found.empty()) {
        statusOf(relayProcess);
        return false;
    }
    address = found;
    // A relay that replaces a dead one must listen at the same address, because the clients look for it there.
    options.listen = address;
    options.orListen.clear();
    return true;
}

void RelayKeeper::serve(int addressPipe, pid_t keeperProcess) {
    users.close();
    start.close();
    keeper.close();
    followKeeper(SIGTERM, keeperProcess);
    const sigset_t set = keptSignals();
    ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
    int status = 1;
    try {
        // Wait for the relay of a keeper that was killed: it may still be ending.
        relay.take();
        Server server(options);
        const std::string place = server.listeningOn();
        check(::write(addressPipe, place.data(), place.size()) == static_cast<ssize_t>(place.size()),
              "The keeper can't be told the address.");
        ::close(addressPipe);
        status = server.run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vimble-relay: %s\n", error.what());
    }
    std::fflush(nullptr);
    // Run no destructors: this process has copies of the keeper's objects, which only the keeper may destroy.
    ::_exit(status);
}

void RelayKeeper::watchUsers() {
    const pid_t self = ::getpid();
    watchProcess = ::fork();
    check(watchProcess >= 0, "There is no process.");
    if (watchProcess != 0) return;
    // A name of its own, so that nobody takes this process for the relay in a list of processes.
    ::prctl(PR_SET_NAME, "lock-watch");
    start.close();
    keeper.close();
    relay.close();
    followKeeper(SIGKILL, self);
    // The keeper shares this open file since the fork, so the keeper still has the lock when this process ends.
    users.take();
    ::_exit(0);
}
