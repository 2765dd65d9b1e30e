#include "ChildProcess.h"
#include "DesktopHistory.h"
#include "Ratios.h"

#include "DesktopKit/App.h"
#include "DesktopKit/ChatterVC.h"
#include "PlatformCore/LinuxHost.h"
#include "PlatformCore/QtMainLoop.h"
#include "PlatformCore/SettingsDefaults.h"
#include "PlatformDesktop/WindowActivity.h"
#include "StateKit/Lifecycle.h"
#include "StateKit/WorkerThread.h"
#include "TestSupport/FakeNotificationCenter.h"
#include "TestSupport/FakePathMonitor.h"
#include "TestSupport/FakeSoundPlayer.h"
#include "TestSupport/FakeTransport.h"
#include "TestSupport/MemorySecretStore.h"
#include "TestSupport/TemporaryFolder.h"

#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <QApplication>

namespace {

const std::vector<Ratio> ratios = {
    {"A chat of 100,000 messages opens, against one of 1,000", "openChat100000", "openChat1000", 3.0},
    {"One more message at the end, likewise", "receiveOneAt100000", "receiveOneAt1000", 2.0},
    {"A scroll step, likewise", "scrollStepAt100000", "scrollStepAt1000", 1.5},
    {"Start to first paint with 100,000 messages, against none", "startWith100000", "startWithNone", 2.0},
};

constexpr std::size_t many = 100000;
constexpr double mostMegabytes = 120;

/// Runs its action right after a window is painted for the first time.
class FirstPaint : public QObject {
public:
    FirstPaint(QWidget& window, std::function<void()> painted) : painted(std::move(painted)) {
        window.installEventFilter(this);
    }
    bool eventFilter(QObject* object, QEvent* event) override {
        if (event->type() == QEvent::Paint && painted)
            QMetaObject::invokeMethod(this, std::exchange(painted, {}), Qt::QueuedConnection);
        return QObject::eventFilter(object, event);
    }

private:
    std::function<void()> painted;
};

/// The program as a user starts it, but with a secret store in memory and without a network.
struct Program {
    Program(const std::filesystem::path& folder, std::future<State> loading)
        : folder(folder), state(std::move(loading)), defaults(folder) {
        secrets.put(Nacl::hex(keysOf(1).secretKey.view()));
        app.emplace(AppEnvironment{.loop = loop,
                                   .secrets = secrets,
                                   .worker = worker,
                                   .pictureWorker = pictureWorker,
                                   .kit = [this]() -> Kit& {
                                       if (!kit)
                                           kit.emplace(KitEnvironment{loop, internets, secrets, transport, host,
                                                                      this->folder,
                                                                      [this] { return this->state.get(); }});
                                       return *kit;
                                   },
                                   .host = host,
                                   .folder = folder,
                                   .userDefaults = defaults,
                                   .lifecycle = lifecycle,
                                   .notifications = notifications,
                                   .sounds = sounds,
                                   .alert = [](QWidget&) {},
                                   .bringForward = [](QWidget& window, const ActivationToken&) { window.show(); },
                                   .quit = [] {}});
        app->applicationWillFinishLaunching();
        app->applicationDidFinishLaunching();
    }

    const std::filesystem::path folder;
    std::future<State> state;
    QtMainLoop loop;
    FakePath path;
    Internets internets{loop, path.monitor()};
    MemorySecretStore secrets;
    WorkerThread worker;
    std::shared_ptr<Worker> pictureWorker = std::make_shared<WorkerThread>();
    FakeTransport transport{loop};
    LinuxHost host;
    SettingsDefaults defaults;
    Lifecycle lifecycle{loop, std::make_unique<WindowActivity>()};
    FakeNotificationCenter notifications{loop};
    FakeSoundPlayer sounds;
    std::optional<Kit> kit;
    std::optional<App> app;
};

double residentMegabytes() {
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

[[noreturn]] void tellMemoryAndEnd() {
    std::printf("%.3f\n", residentMegabytes());
    std::fflush(stdout);
    _exit(0);
}

/// What this program does when it was started by `ChildProcess`. @return the exit status
int runAsChild(std::string_view what, const std::filesystem::path& folder, int& count, char** arguments) {
    // As in the real program, the saved state is read while the toolkit starts.
    std::future<State> state;
    if (what != "--child-empty") state = std::async(std::launch::async, [folder] { return State::load(folder, {}); });
    const QApplication application(count, arguments);
    if (what == "--child-empty") {
        QMainWindow window;
        window.resize(512, 384);
        const FirstPaint paint(window, tellMemoryAndEnd);
        window.show();
        return QApplication::exec();
    }
    Program program(folder, std::move(state));
    if (what == "--child-start") {
        const FirstPaint paint(program.app->rosterWindow(), [] { _exit(0); });
        return QApplication::exec();
    }
    program.app->openConversation({DesktopHistory::partner(), "", "", false, false});
    auto* window = program.app->chatterWindows().existing(DesktopHistory::partner());
    // The chat's beginning is built after the first painting.
    const FirstPaint paint(*window, [window] {
        QCoreApplication::processEvents();
        if (window->chatterVC().output().transcript().items.size() < many) _exit(1);
        tellMemoryAndEnd();
    });
    return QApplication::exec();
}

/// The data folders with which the program is started: a full one and an empty one.
struct Folders {
    Folders() { DesktopHistory::save(full.path, many); }

    TemporaryFolder full;
    TemporaryFolder empty;
};

const Folders& folders() {
    static const Folders all;
    return all;
}

void start(benchmark::State& state, const std::filesystem::path& folder) {
    for (auto _ : state) state.SetIterationTime(ChildProcess::timeOf({"--child-start", folder.native()}));
}

void startWithNone(benchmark::State& state) { start(state, folders().empty.path); }
void startWith100000(benchmark::State& state) { start(state, folders().full.path); }

}  // namespace

BENCHMARK(startWithNone)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(startWith100000)->Unit(benchmark::kMillisecond)->UseManualTime();

int main(int argc, char** argv) {
    int none = 1;
    if (argc > 2 && std::string_view(argv[1]).starts_with("--child-")) return runAsChild(argv[1], argv[2], none, argv);
    const QApplication application(none, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    const int status = runBenchmarks(argc, argv, ratios);
    const double empty = ChildProcess::numberFrom({"--child-empty", "/"});
    const double full = ChildProcess::numberFrom({"--child-memory", folders().full.path.native()});
    const bool isWithin = full - empty <= mostMegabytes;
    std::printf("%-66s %8.1f %8.1f%s\n", "MB with 100,000 messages, over an empty window", full - empty, mostMegabytes,
                isWithin ? "" : "  NOT REACHED");
    return isWithin ? status : 1;
}
