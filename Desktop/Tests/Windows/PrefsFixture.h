#pragma once

#include "AttentionKit/Notifier.h"
#include "DesktopKit/KeyReplaceVC.h"
#include "DesktopKit/PrefsWindow.h"
#include "TestSupport/FakeCamera.h"
#include "TestSupport/FakeNotificationCenter.h"
#include "TestSupport/FakeSoundPlayer.h"
#include "TestSupport/FakeUserAttention.h"
#include "TestSupport/MemoryDefaults.h"
#include "TestSupport/Session.h"
#include "TestSupport/TestWorker.h"
#include "VimbleKit/KeyAccess.h"

#include <QAccessible>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The preferences, on a session whose user is person 1.
class PrefsTest : public testing::Test {
protected:
    void open() {
        window.emplace(PrefsEnvironment{
            .loop = session.loop,
            .pictureWorker = pictureWorker,
            .keys = *keys,
            .notifier = *notifier,
            .makeCamera = [this] { return std::make_unique<FakeCamera>(camera); },
            .exportKey = [this](const SecretKey& key, QWidget&) { exported.push_back(Nacl::hex(key.view())); }});
        window->show();
        settle();
    }

    /// Lets the store answer, and delivers the answer to the window.
    void settle() {
        worker.runAll();
        session.loop.run();
        QCoreApplication::processEvents();
    }

    template <class Widget>
    Widget* find(const char* name) {
        return window->findChild<Widget*>(QLatin1String(name));
    }
    QPushButton* button(const char* name) { return find<QPushButton>(name); }
    std::string publicKey() { return find<KeyField>("publicKeyValue")->key().toStdString(); }
    KeyReplaceWindow* sheet() { return window->prefsVC().keyReplaceSheet(); }
    void openSheet() {
        button("secretKeyReplace")->click();
        ASSERT_NE(sheet(), nullptr);
        ASSERT_TRUE(sheet()->isVisible());
    }
    QMessageBox* alert() {
        for (auto* box : window->findChildren<QMessageBox*>())
            if (box->isVisible()) return box;
        return nullptr;
    }
    /// Gives a text to the scanner's page, as if it were pasted.
    void scan(const std::string& text) {
        QMimeData data;
        data.setText(QString::fromStdString(text));
        sheet()->keyReplaceVC().scanVC().take(data);
    }

    std::string stored() const {
        if (session.secrets.items.size() != 1) return "(" + std::to_string(session.secrets.items.size()) + " items)";
        return std::string(textOf(*session.secrets.items[0].data));
    }
    static std::string publicKeyOf(const std::string& secret) { return Keys(secret).publicKeyText(); }

    Session session;
    TestWorker worker;
    std::shared_ptr<TestWorker> pictureWorker = std::make_shared<TestWorker>();
    FakeCamera::Remote camera;
    std::optional<KeyAccess> keys{std::in_place, session.loop, session.secrets, worker};
    FakeSoundPlayer sounds;
    FakeNotificationCenter notifications{session.loop};
    FakeUserAttention attention;
    MemoryDefaults defaults;
    std::unique_ptr<Notifier> notifier = std::make_unique<Notifier>(
        NotifierEnvironment{session.loop, session.start(), defaults, sounds, notifications, attention});
    std::vector<std::string> exported;
    std::optional<PrefsWindow> window;

    const std::string own = Nacl::hex(keysOf(1).secretKey.view());
    const std::string other = Nacl::hex(keysOf(2).secretKey.view());
};
