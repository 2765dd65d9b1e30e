#pragma once

#include "DesktopKit/App.h"
#include "TestSupport/FakeActivity.h"
#include "TestSupport/FakeNotificationCenter.h"
#include "TestSupport/FakeSoundPlayer.h"
#include "TestSupport/MemoryDefaults.h"
#include "TestSupport/Session.h"
#include "TestSupport/TestWorker.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

/// A run of the program on a machine that outlives it.
class AppTest : public testing::Test {
protected:
    ~AppTest() override { endProgram(); }

    /// Starts the program up to its first window. @return what `applicationWillFinishLaunching` returned
    bool start() {
        app.emplace(AppEnvironment{.loop = session.loop,
                                   .secrets = session.secrets,
                                   .worker = worker,
                                   .pictureWorker = pictureWorker,
                                   .kit = [this]() -> Kit& {
                                       ++kitCalls;
                                       if (!session.kit) {
                                           keysReadBeforeKit = session.secrets.calls.size();
                                           session.start();
                                       }
                                       return *session.kit;
                                   },
                                   .host = session.host,
                                   .folder = session.folder.path,
                                   .userDefaults = defaults,
                                   .lifecycle = lifecycle,
                                   .notifications = notifications,
                                   .sounds = sounds,
                                   .alert = [this](QWidget& window) { alerted.push_back(&window); },
                                   .bringForward =
                                       [this](QWidget& window, const ActivationToken& token) {
                                           tokens.push_back(token.activation.toStdString());
                                           window.showNormal();
                                           window.activateWindow();
                                           last = &window;
                                       },
                                   .quit = [this] { ++quits; },
                                   .updater = updater});
        if (!app->applicationWillFinishLaunching()) return false;
        app->applicationDidFinishLaunching();
        return true;
    }

    /// Ends the program properly: its windows close after it has noted which of them are open.
    void endProgram() {
        if (app) app->applicationWillTerminate();
        crash();
    }
    /// Ends the program without `applicationWillTerminate`.
    void crash() {
        app.reset();
        session.kit.reset();
    }

    /// Lets a second pass, so that delayed writes happen.
    void pass() {
        QCoreApplication::processEvents();
        session.loop.advance(1);
    }

    static std::vector<QWidget*> visibleWindows() {
        std::vector<QWidget*> windows;
        for (QWidget* window : QApplication::topLevelWidgets())
            if (window->isVisible() && qobject_cast<QMainWindow*>(window) != nullptr) windows.push_back(window);
        return windows;
    }

    Person person(std::uint8_t number) const { return {keyTextOf(number), "", "", false, true}; }

    Session session;
    TestWorker worker;
    std::shared_ptr<TestWorker> pictureWorker = std::make_shared<TestWorker>();
    MemoryDefaults defaults;
    FakeApplication application;
    Lifecycle lifecycle{session.loop, application.activity()};
    FakeNotificationCenter notifications{session.loop};
    FakeSoundPlayer sounds;
    AppUpdater* updater = nullptr;
    std::optional<App> app;
    int kitCalls = 0;
    int quits = 0;
    std::size_t keysReadBeforeKit = 0;
    std::vector<std::string> tokens;
    QWidget* last = nullptr;
    std::vector<QWidget*> alerted;
};
