#pragma once

#include "StateKit/MainLoop.h"
#include "TestSupport/TemporaryFolder.h"
#include "UpdateKit/BundleSearch.h"
#include "UpdateKit/UpdateEnvironment.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// The world of an update coordinator. Only its folders are real; its other answers stand in its fields.
///
/// Operations are answered at the loop's next turn, or, if they are among the `held`, at the test's `release`. It
/// must outlive the coordinator.
class FakeUpdateWorld {
public:
    using Path = std::filesystem::path;

    explicit FakeUpdateWorld(MainLoop& loop) : loop(loop) {}

    UpdateEnvironment environment() {
        UpdateEnvironment result;
        result.bundleInfo = [this](std::string_view key) -> std::optional<std::string> {
            const auto found = info.find(key);
            return found == info.end() ? std::nullopt : std::optional(found->second);
        };
        result.systemVersion = [this] { return systemVersion; };
        result.currentApplication = "/opt/Vimble.app";
        result.processIdentifier = 4711;
        result.watchReachability = [this](std::function<void(bool)> report) {
            reachability = std::move(report);
            return std::shared_ptr<void>(this, [this](void*) { reachability = {}; });
        };
        result.load = [this](const Url& url, Completion<Bytes> completion) {
            return begin<Bytes>("load " + url.text(), std::move(completion), [this] {
                const auto bytes = bytesOf(manifest);
                return Bytes(bytes.begin(), bytes.end());
            });
        };
        result.download = [this](const Url& url, const Path& file, Completion<Done> completion) {
            return begin<Done>("download " + url.text(), std::move(completion), [file] {
                std::ofstream(file) << "an archive";
                return Done{};
            });
        };
        result.makeStagingDirectory = [this] {
            step("makeStagingDirectory");
            const Path path = folder.path / "UpdateKit" / std::to_string(++stagingCount);
            std::filesystem::create_directories(path);
            return path;
        };
        result.makeFolder = [this](const Path& path) {
            step("makeFolder");
            std::filesystem::create_directories(path);
        };
        result.exists = [](const Path& path) { return std::filesystem::exists(path); };
        result.removeFolder = [](const Path& path) { std::filesystem::remove_all(path); };
        result.extract = [this](const Path& archive, const Path& destination, Completion<Done> completion) {
            return begin<Done>("extract", std::move(completion), [this, archive, destination] {
                if (!std::filesystem::exists(archive)) throw std::runtime_error("there is no archive");
                for (const std::string& name : contents) std::filesystem::create_directories(destination / name);
                return Done{};
            });
        };
        result.findAppBundle = [](const Path& extracted) { return findAppBundle(extracted); };
        result.validate = [this](const Path&, const DownloadExpectation& expectation,
                                 Completion<ValidatedAppBundle> completion) {
            expectations.push_back(expectation);
            return begin<ValidatedAppBundle>("validate", std::move(completion), [expectation] {
                return ValidatedAppBundle{expectation.expectedVersion, "Vimble"};
            });
        };
        result.installer = std::make_shared<Installer>(*this);
        return result;
    }

    /// Answers the first held operation whose name begins with this. @return whether there was one
    bool release(const std::string& name) {
        for (auto it = pending.begin(); it != pending.end(); ++it) {
            if (!it->first.starts_with(name)) continue;
            const auto answer = std::move(it->second);
            pending.erase(it);
            answer();
            return true;
        }
        return false;
    }

    /// Whether an operation whose name begins with this is held back.
    bool isPending(const std::string& name) const {
        for (const auto& [each, answer] : pending)
            if (each.starts_with(name)) return true;
        return false;
    }

    /// The staging directories that lie on disk.
    std::vector<std::string> staging() const {
        std::vector<std::string> names;
        const Path top = folder.path / "UpdateKit";
        if (!std::filesystem::exists(top)) return names;
        for (const auto& entry : std::filesystem::directory_iterator(top)) names.push_back(entry.path().filename());
        return names;
    }

    std::vector<std::string> takeOperations() { return std::exchange(done, {}); }

    std::string manifest = R"({"version": "1.4.0", "url": "Vimble-1.4.0.zip"})";
    std::map<std::string, std::string, std::less<>> info{{"CFBundleShortVersionString", "1.3.0"}};
    SemanticVersion systemVersion{12, 0, 0};
    std::vector<std::string> contents{"Vimble.app/Contents"};
    std::set<std::string> held;                          // first words of operations
    std::map<std::string, std::exception_ptr> failures;  // by the first word
    std::function<void(bool)> reachability;              // set while the coordinator watches the network
    std::vector<DownloadExpectation> expectations;
    std::vector<InstallerRequest> installations;
    TemporaryFolder folder;

private:
    struct Installer : UpdateKitInstalling {
        explicit Installer(FakeUpdateWorld& world) : world(world) {}
        std::shared_ptr<void> install(const InstallerRequest& request, Completion<Done> completion) override {
            world.installations.push_back(request);
            return world.begin<Done>("install", std::move(completion), [] { return Done{}; });
        }
        FakeUpdateWorld& world;
    };

    void step(const std::string& name) {
        const std::string word = name.substr(0, name.find(' '));
        done.push_back(name);
        if (const auto failure = failures.find(word); failure != failures.end())
            std::rethrow_exception(failure->second);
    }

    template <class Value>
    std::shared_ptr<void> begin(const std::string& name, Completion<Value> completion, std::function<Value()> make) {
        // The handle owns the completion, so that dropping the handle calls the operation off.
        auto handle = std::make_shared<Completion<Value>>(std::move(completion));
        const auto answer = [this, name, make, weak = std::weak_ptr(handle)] {
            const auto strong = weak.lock();
            if (!strong) return;
            const auto call = std::exchange(*strong, {});
            call(Outcome<Value>::of([&] {
                step(name);
                return make();
            }));
        };
        if (held.contains(name.substr(0, name.find(' '))))
            pending.emplace_back(name, answer);
        else
            loop.post(answer);
        return handle;
    }

    MainLoop& loop;
    int stagingCount = 0;
    std::vector<std::string> done;
    std::list<std::pair<std::string, std::function<void()>>> pending;
};
