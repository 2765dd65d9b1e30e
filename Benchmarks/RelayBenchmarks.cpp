#include "Base/Check.h"
#include "RelayLoad.h"
#include "TestSupport/TemporaryFolder.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

constexpr std::size_t textCount = 2000;

/// The folder of this program, in which the relay and the router lie too.
std::filesystem::path programFolder() { return std::filesystem::read_symlink("/proc/self/exe").parent_path(); }

/// A server in a process of its own. Its first line of output must be "... listening on 127.0.0.1:PORT".
class Server {
public:
    explicit Server(std::vector<std::string> command) {
        int output[2];
        check(::pipe(output) == 0, "no pipe");
        process = ::fork();
        check(process >= 0, "no process");
        if (process == 0) {
            ::dup2(output[1], STDOUT_FILENO);
            ::close(output[0]);
            std::vector<char*> arguments;
            for (std::string& argument : command) arguments.push_back(argument.data());
            arguments.push_back(nullptr);
            ::setenv("NODE_PATH", "/usr/share/nodejs", 1);
            ::execvp(arguments[0], arguments.data());
            std::perror(arguments[0]);
            ::_exit(127);
        }
        ::close(output[1]);
        std::FILE* lines = ::fdopen(output[0], "r");
        char line[256] = "";
        check(std::fgets(line, sizeof line, lines) != nullptr, "a server did not start");
        port =
            static_cast<std::uint16_t>(std::atoi(std::string(line).substr(std::string(line).rfind(':') + 1).c_str()));
        std::fclose(lines);
    }
    ~Server() {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Seconds of processor time so far, all threads, in user and kernel.
    double processorTime() const {
        clockid_t clock;
        timespec time;
        check(::clock_getcpuclockid(process, &clock) == 0 && ::clock_gettime(clock, &time) == 0, "no processor clock");
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }

    std::uint16_t port = 0;

private:
    pid_t process = -1;
};

/// Measures the processor time that the server spends on one delivered pack.
void measure(benchmark::State& state, const Server& server, RelayLoad& load, RelayLogin login) {
    load.connect(server.port, login);
    load.run(textCount / 4);  // so that buffers have grown and the code is warm
    for (auto _ : state) {
        const double before = server.processorTime();
        load.run(textCount);
        state.SetIterationTime((server.processorTime() - before) /
                               static_cast<double>(textCount * RelayLoad::readerCount));
    }
}

void deliverThroughRelay(benchmark::State& state) {
    const TemporaryFolder folder;
    const std::string relay = (programFolder() / "vimble-relay").string();
    const std::string database = (folder.path / "relay.db").string();
    const std::string keyFile = (folder.path / "keys").string();
    RelayLoad load;
    std::ofstream(keyFile) << load.keyFile();
    const std::string add = relay + " add --file " + keyFile + " --database " + database + " >/dev/null";
    check(std::system(add.c_str()) == 0, "the members could not be added");
    const Server server(
        {relay, "serve", "--listen", "127.0.0.1:0", "--database", database, "--texts-per-second", "1000000"});
    measure(state, server, load, RelayLogin::sealedList);
}

void deliverThroughRouter(benchmark::State& state) {
    RelayLoad load;
    const Server server({"nodejs", (programFolder() / "router.js").string()});
    measure(state, server, load, RelayLogin::bareKey);
}

BENCHMARK(deliverThroughRelay)->UseManualTime()->Iterations(1)->Unit(benchmark::kNanosecond);
BENCHMARK(deliverThroughRouter)->UseManualTime()->Iterations(1)->Unit(benchmark::kNanosecond);

}  // namespace
