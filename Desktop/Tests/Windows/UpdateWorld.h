#pragma once

#include "DesktopKit/AppUpdater.h"
#include "TestSupport/FakeUpdateWorld.h"
#include "TestSupport/MemoryDefaults.h"
#include "TestSupport/TestLoop.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

/// An application's updater with all that it uses: the real coordinator, in virtual time, in a world that a test
/// makes.
class UpdateWorld {
public:
    /// @param mainLoop  must outlive it
    explicit UpdateWorld(MainLoop& mainLoop) : mainLoop(mainLoop) { make(); }
    ~UpdateWorld() {
        updater.reset();
        ownLoop.run();
    }

    void make() {
        updater = std::make_unique<AppUpdater>(AppUpdaterEnvironment{
            mainLoop,
            [this](const char* name) -> std::optional<std::string> {
                const auto found = variables.find(name);
                return found == variables.end() ? std::nullopt : std::optional(found->second);
            },
            [this](std::string_view key) -> std::optional<std::string> {
                const auto found = world.info.find(key);
                return found == world.info.end() ? std::nullopt : std::optional(found->second);
            },
            [this](const Url& url) {
                manifestUrl = url.text();
                return std::make_unique<UpdateKit>(mainLoop, ownLoop, defaults, url, world.environment());
            }});
    }

    /// Starts the updater with a manifest on the network. It has not been told that there is a network, so nothing
    /// happens by itself.
    void start() {
        variables["VIMBLE_UPDATE_MANIFEST_URL"] = "https://host/latest.json";
        updater->start();
    }

    MainLoop& mainLoop;
    TestLoop ownLoop;
    FakeUpdateWorld world{ownLoop};
    MemoryDefaults defaults;
    std::map<std::string, std::string> variables;
    std::optional<std::string> manifestUrl;
    std::unique_ptr<AppUpdater> updater;
};
