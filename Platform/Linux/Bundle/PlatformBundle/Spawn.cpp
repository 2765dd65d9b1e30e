#include "PlatformBundle/Spawn.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <system_error>
#include <unistd.h>

namespace {

class FileActions {
public:
    FileActions() { ::posix_spawn_file_actions_init(&actions); }
    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    posix_spawn_file_actions_t* get() { return &actions; }

private:
    posix_spawn_file_actions_t actions;
};

class Attributes {
public:
    Attributes() { ::posix_spawnattr_init(&attributes); }
    ~Attributes() { ::posix_spawnattr_destroy(&attributes); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    posix_spawnattr_t* get() { return &attributes; }

private:
    posix_spawnattr_t attributes;
};

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

void setSignals(posix_spawnattr_t* attributes, bool hasOwnSession) {
    sigset_t none, all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(attributes, &none);
    ::posix_spawnattr_setsigdefault(attributes, &all);
    int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    if (hasOwnSession) flags |= POSIX_SPAWN_SETSID;
    ::posix_spawnattr_setflags(attributes, static_cast<short>(flags));
}

}  // namespace

pid_t spawn(const SpawnRequest& request) {
    FileActions files;
    if (request.input)
        ::posix_spawn_file_actions_adddup2(files.get(), *request.input, STDIN_FILENO);
    else
        ::posix_spawn_file_actions_addopen(files.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (request.output) ::posix_spawn_file_actions_adddup2(files.get(), *request.output, STDOUT_FILENO);
    if (request.output && !request.keepsErrors)
        ::posix_spawn_file_actions_adddup2(files.get(), *request.output, STDERR_FILENO);
    ::posix_spawn_file_actions_addclosefrom_np(files.get(), STDERR_FILENO + 1);
    if (request.workingFolder) ::posix_spawn_file_actions_addchdir_np(files.get(), request.workingFolder->c_str());
    Attributes attributes;
    setSignals(attributes.get(), request.hasOwnSession);

    std::vector<std::string> arguments{request.executable.native()};
    arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
    std::vector<std::string> environment = request.environment.value_or(std::vector<std::string>());
    pid_t process = -1;
    const int error =
        ::posix_spawn(&process, request.executable.c_str(), files.get(), attributes.get(), pointersTo(arguments).data(),
                      request.environment ? pointersTo(environment).data() : environ);
    if (error != 0) throw std::system_error(error, std::system_category(), "start " + request.executable.native());
    return process;
}
