#include "PlatformUpdate/LiveUpdateEnvironment.h"

#include "PlatformBundle/ArchiveExtractor.h"
#include "PlatformBundle/LiveInstallerEnvironment.h"
#include "PlatformBundle/PosixProcessLauncher.h"
#include "PlatformBundle/PropertyListBundleReader.h"
#include "PlatformBundle/RunningApplication.h"
#include "PlatformBundle/StagingFolders.h"
#include "PlatformUpdate/Reachability.h"
#include "PlatformUpdate/SystemVersion.h"
#include "PlatformUpdate/UpdateFetcher.h"
#include "UpdateKit/BundleSearch.h"

#include <chrono>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

using Path = std::filesystem::path;

constexpr char codeSignTool[] = "vimble-codesign";
/// For one look at a seal: the end of the program may have to wait for it.
constexpr std::chrono::minutes codeSignTime{2};

ValidatedAppBundle validate(const Path& application, const DownloadExpectation& expectation) {
    PropertyListBundleReader bundles;
    PosixProcessLauncher launcher(codeSignTime);
    const Path tool = toolBesideThisProgram(codeSignTool);
    return validateDownloadedApp(application, expectation, bundles, [&](const Path& bundle) {
        return readCodeSignatureProfile(launcher, tool, bundle, ProcessDomain::application);
    });
}

}  // namespace

UpdateEnvironment liveUpdateEnvironment(MainLoop& loop, const Host& host, Reachability& reachability,
                                        const Path& temporaryFolder, std::shared_ptr<UpdateKitInstalling> installer) {
    const auto fetcher = std::make_shared<UpdateFetcher>(loop);
    const auto staging = std::make_shared<StagingFolders>(temporaryFolder);
    loop.post([staging] { staging->removeLeftovers(); });

    UpdateEnvironment world;
    world.bundleInfo = [&host](std::string_view key) { return host.bundleInfo(key); };
    world.systemVersion = [] { return systemVersion(); };
    world.currentApplication = runningApplication();
    world.processIdentifier = getpid();
    world.watchReachability = [&reachability](std::function<void(bool)> report) {
        return reachability.watch(std::move(report));
    };
    world.load = [fetcher](const Url& url, Completion<Bytes> completion) {
        return fetcher->load(url, std::move(completion));
    };
    world.download = [fetcher](const Url& url, const Path& file, Completion<Done> completion) {
        return fetcher->download(url, file, std::move(completion));
    };
    world.makeStagingDirectory = [staging] { return staging->make(); };
    world.removeFolder = [staging](const Path& folder) { staging->remove(folder); };
    world.makeFolder = [](const Path& folder) { std::filesystem::create_directories(folder); };
    world.exists = [](const Path& path) {
        std::error_code ignored;
        return std::filesystem::exists(path, ignored);
    };
    world.extract = [](const Path& archive, const Path& folder, const Completion<Done>& completion) {
        completion(Outcome<Done>::of([&] { extractArchive(archive, folder); }));
        return nullptr;
    };
    world.findAppBundle = findAppBundle;
    world.validate = [](const Path& application, const DownloadExpectation& expectation,
                        const Completion<ValidatedAppBundle>& completion) {
        completion(Outcome<ValidatedAppBundle>::of([&] { return validate(application, expectation); }));
        return nullptr;
    };
    world.installer = std::move(installer);
    return world;
}
