#include "Loudspeaker.h"

#include "ChatWorld.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace {

constexpr int rate = 8000;                // samples a second
constexpr std::size_t halfSecond = rate;  // in bytes: half as many samples, of two bytes each

bool isSound(char byte) { return byte != 0; }

}  // namespace

Loudspeaker::Loudspeaker(const Screen& screen) {
    Process::Start start;
    start.environment = screen.environment();
    start.command = {"/usr/bin/pulseaudio",
                     "-n",
                     "--daemonize=no",
                     "--exit-idle-time=-1",
                     "-L",
                     "module-native-protocol-unix",
                     "-L",
                     "module-null-sink sink_name=nul"};
    server = std::make_unique<Process>(start);
    const std::filesystem::path socket =
        std::filesystem::path(screen.environment().at("XDG_RUNTIME_DIR")) / "pulse" / "native";
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(socket); })) << server->errors();
    start.command = {"/usr/bin/parec", "-d",
                     "nul.monitor",    "--raw",
                     "--format=s16le", "--rate=" + std::to_string(rate),
                     "--channels=1",   "--latency-msec=20"};
    recording = std::make_unique<Process>(start);
    EXPECT_TRUE(eventually([&] {
        recording->readAvailable();
        return !recording->output().empty();
    })) << recording->errors();
}

bool Loudspeaker::wasHeard() {
    recording->readAvailable();
    const std::string& all = recording->output();
    const auto from = all.begin() + static_cast<std::ptrdiff_t>(listened);
    listened = all.size();
    return std::any_of(from, all.end(), isSound);
}

bool Loudspeaker::isSilent() {
    recording->readAvailable();
    const std::string& all = recording->output();
    return all.size() >= halfSecond &&
           std::none_of(all.end() - static_cast<std::ptrdiff_t>(halfSecond), all.end(), isSound);
}
