#include "SigningSupport/ProgramRun.h"

#include "Base/Check.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

std::vector<char*> wordsOf(const std::vector<std::string>& command) {
    std::vector<char*> words;
    for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    return words;
}

int statusOf(pid_t process) {
    int status = 0;
    while (::waitpid(process, &status, 0) < 0) check(errno == EINTR, "waiting fails");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

ProgramRun ProgramRun::of(const std::vector<std::string>& command, std::optional<uid_t> user) {
    int out[2], err[2];
    check(::pipe2(out, O_CLOEXEC) == 0 && ::pipe2(err, O_CLOEXEC) == 0, "no pipe");
    const auto words = wordsOf(command);
    const pid_t process = ::fork();
    if (process == 0) {
        ::setsid();
        ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        if (user && (::setgroups(0, nullptr) != 0 || ::setgid(*user) != 0 || ::setuid(*user) != 0)) ::_exit(126);
        ::execv(words[0], words.data());
        ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);
    ProgramRun run;
    std::array<pollfd, 2> ends{pollfd{out[0], POLLIN, 0}, pollfd{err[0], POLLIN, 0}};
    std::array<std::string*, 2> texts{&run.output, &run.errors};
    while (ends[0].fd >= 0 || ends[1].fd >= 0) {
        ::poll(ends.data(), ends.size(), -1);
        for (std::size_t i = 0; i < ends.size(); ++i) {
            if (ends[i].fd < 0 || ends[i].revents == 0) continue;
            std::array<char, 4096> bytes;
            const ssize_t count = ::read(ends[i].fd, bytes.data(), bytes.size());
            if (count > 0) texts[i]->append(bytes.data(), static_cast<std::size_t>(count));
            if (count == 0) ::close(std::exchange(ends[i].fd, -1));
        }
    }
    run.status = statusOf(process);
    return run;
}

ProgramRun ProgramRun::onTerminal(const std::vector<std::string>& command, const std::string& passphrase,
                                  const std::string& folder) {
    const auto words = wordsOf(command);
    int terminal = -1;
    const pid_t process = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    check(process >= 0, "no terminal");
    if (process == 0) {
        if (!folder.empty() && ::chdir(folder.c_str()) != 0) ::_exit(126);
        ::execvp(words[0], words.data());
        ::_exit(127);
    }
    ProgramRun run;
    std::size_t seen = 0;
    std::array<char, 4096> bytes;
    while (true) {
        const ssize_t count = ::read(terminal, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        run.output.append(bytes.data(), static_cast<std::size_t>(count));
        // The program writes a colon behind the word "phrase" only in a prompt.
        const std::size_t asked = run.output.rfind("phrase");
        if (asked != std::string::npos && asked >= seen && run.output.find(':', asked) != std::string::npos) {
            seen = run.output.size();
            const std::string line = passphrase + '\n';
            check(::write(terminal, line.data(), line.size()) == static_cast<ssize_t>(line.size()), "no typing");
        }
    }
    ::close(terminal);
    run.status = statusOf(process);
    return run;
}

bool ProgramRun::hasLine(const std::string& line) const {
    std::istringstream text(output);
    for (std::string each; std::getline(text, each);)
        if (each == line) return true;
    return false;
}

std::vector<std::string> ProgramRun::values(const std::string& beginning) const {
    std::vector<std::string> found;
    std::istringstream text(output);
    for (std::string line; std::getline(text, line);)
        if (line.starts_with(beginning)) found.push_back(line.substr(beginning.size()));
    return found;
}

ProgramRun codesign(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), CODESIGN_PROGRAM);
    return ProgramRun::of(arguments);
}
