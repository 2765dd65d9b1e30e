#include "PlatformUpdate/LiveUpdateEnvironment.h"

#include "PlatformBundle/ArchiveExtractor.h"
#include "PlatformBundle/LiveInstallerEnvironment.h"
#include "PlatformBundle/PosixProcessLauncher.h"
#include "PlatformBundle/PropertyListBundleReader.h"
#include "PlatformBundle/RunningBundle.h"
#include "PlatformBundle/StagingFolders.h"
#include "PlatformUpdate/BackgroundWork.h"
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
constexpr std::chrono::minutes codeSignTime{2};  // the time limit for checking one seal

ValidatedAppBundle validate(const Path& application, const DownloadExpectation& expectation, const Path& tool,
                            const std::stop_token& stop) {
    PropertyListBundleReader bundles;
    PosixProcessLauncher launcher(codeSignTime, stop);
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
    world.extract = [&loop](const Path& archive, const Path& folder, Completion<Done> completion) {
        const auto work = [archive, folder](const std::stop_token& stop) {
            extractArchive(archive, folder, {}, stop);
            return Done{};
        };
        return BackgroundWork<Done>::begin(loop, work, std::move(completion));
    };
    world.findAppBundle = findAppBundle;
    // Find the tool now: once another process of this bundle has had it updated, our own program lies nowhere any more,
    // while the new one lies in the same place, with the same tool beside it.
    const Path tool = toolBesideThisProgram(codeSignTool);
    world.validate = [&loop, tool](const Path& application, const DownloadExpectation& expectation,
                                   Completion<ValidatedAppBundle> completion) {
        const auto work = [application, expectation, tool](const std::stop_token& stop) {
            return validate(application, expectation, tool, stop);
        };
        return BackgroundWork<ValidatedAppBundle>::begin(loop, work, std::move(completion));
    };
    world.installer = std::move(installer);
    return world;
}
