#include "ChildProcess.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Result {
    double seconds = 0;
    std::string output;
};

Result run(const std::vector<std::string>& arguments) {
    std::string self = "/proc/self/exe";
    std::vector<std::string> copies = arguments;
    std::vector<char*> pointers{self.data()};
    for (std::string& argument : copies) pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe could be made");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid_t child = 0;
    const auto start = std::chrono::steady_clock::now();
    const int failure = posix_spawn(&child, self.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    Result result;
    if (failure == 0) {
        std::array<char, 256> buffer;
        for (ssize_t count = 0; (count = read(ends[0], buffer.data(), buffer.size())) > 0;)
            result.output.append(buffer.data(), static_cast<std::size_t>(count));
    }
    close(ends[0]);
    if (failure != 0) throw std::runtime_error("the program could not be started again");
    int status = 0;
    waitpid(child, &status, 0);
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("the started program failed");
    return result;
}

}  // namespace

double ChildProcess::timeOf(const std::vector<std::string>& arguments) { return run(arguments).seconds; }

double ChildProcess::numberFrom(const std::vector<std::string>& arguments) {
    return std::strtod(run(arguments).output.c_str(), nullptr);
}
