#include "PrefsFixture.h"

#include <gmock/gmock.h>

#include <QClipboard>
#include <QGuiApplication>

#include <utility>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using PrefsVCTest = PrefsTest;

TEST_F(PrefsVCTest, TheFormSaysWhatItIsToSay) {
    open();
    EXPECT_EQ(window->windowTitle(), "Preferences");
    EXPECT_EQ(find<QLabel>("publicKeyLabel")->text(), "Public Key:");
    EXPECT_EQ(publicKey(), keyTextOf(1));
    EXPECT_EQ(find<QLabel>("secretKeyLabel")->text(), "Secret Key:");
    EXPECT_EQ(find<QLabel>("secretKeyExplanation")->text(), "••••••••••••••••••••••••••••••••");
    EXPECT_EQ(find<QLabel>("notificationsLabel")->text(), "Notifications:");
    const std::pair<const char*, const char*> names[] = {{"secretKeyReplace", "Replace..."},
                                                         {"secretKeyExport", "Export..."},
                                                         {"bounceIcon", "Bounce dock icon on new messages"},
                                                         {"chatNotifications", "Show chat message notifications"},
                                                         {"joinNotifications", "Show user now online notifications"}};
    for (const auto& [name, text] : names)
        EXPECT_EQ(QAccessible::queryAccessibleInterface(find<QWidget>(name))->text(QAccessible::Name), text);
}

TEST_F(PrefsVCTest, TheSecretKeyIsNowhereInTheWindow) {
    open();
    for (const QWidget* widget : window->findChildren<QWidget*>())
        for (int i = 0; i < widget->metaObject()->propertyCount(); ++i)
            EXPECT_FALSE(widget->metaObject()->property(i).read(widget).toString().contains(QString::fromStdString(own),
                                                                                            Qt::CaseInsensitive));
}

TEST_F(PrefsVCTest, ThePublicKeyIsCopiedBare) {
    open();
    auto* field = find<KeyField>("publicKeyValue");
    field->selectAll();
    field->copy();
    EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString(), keyTextOf(1));
}

TEST_F(PrefsVCTest, AFailingKeychainIsSaidInPlaceOfTheKeyAndTheFormStaysUsable) {
    session.secrets.failAll(SecretStatuses::interactionNotAllowed);
    open();
    EXPECT_EQ(publicKey(), "Keychain access failed");
    EXPECT_EQ(alert(), nullptr);
    find<QCheckBox>("bounceIcon")->click();
    EXPECT_FALSE(notifier->isBounceIconEnabled());
    openSheet();
    QTest::keyClick(sheet(), Qt::Key_Escape);
    session.secrets.failNone();
    settle();
    EXPECT_EQ(publicKey(), keyTextOf(1));
}

TEST_F(PrefsVCTest, EveryStateOfTheKeychainLeavesTheStoredKey) {
    for (const SecretStatus status :
         {SecretStatuses::notAvailable, SecretStatuses::interactionNotAllowed, SecretStatuses::authFailed,
          SecretStatuses::userCanceled, SecretStatuses::decode, SecretStatuses::internalError}) {
        session.secrets.failAll(status);
        open();
        EXPECT_EQ(publicKey(), "Keychain access failed");
        openSheet();
        QTest::keyClick(sheet(), Qt::Key_Return);
        settle();
        ASSERT_NE(alert(), nullptr) << status;
        EXPECT_EQ(stored(), own) << status;
        window.reset();
        session.secrets.failNone();
    }
}

// ---- switches

TEST_F(PrefsVCTest, EachSwitchSetsItsOwnSettingAndTellsAScreenReader) {
    open();
    const struct {
        const char* name;
        bool (Notifier::*isOn)() const;
    } rows[] = {{"bounceIcon", &Notifier::isBounceIconEnabled},
                {"chatNotifications", &Notifier::isChatNotificationsEnabled},
                {"joinNotifications", &Notifier::isJoinNotificationsEnabled}};
    const auto settings = [&] {
        std::vector<bool> values;
        for (const auto& row : rows) values.push_back(((*notifier).*row.isOn)());
        return values;
    };
    std::vector<bool> expected{true, true, true};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        QAccessibleInterface* box = QAccessible::queryAccessibleInterface(find<QCheckBox>(rows[i].name));
        EXPECT_EQ(box->role(), QAccessible::CheckBox);
        EXPECT_TRUE(box->state().checkable);
        EXPECT_TRUE(box->state().checked);
        for (const bool isOn : {false, true, false}) {
            // Toggle it as a screen reader does.
            box->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
            expected[i] = isOn;
            EXPECT_EQ(box->state().checked, isOn) << rows[i].name;
            EXPECT_EQ(settings(), expected) << rows[i].name;
        }
    }
}

TEST_F(PrefsVCTest, TheSwitchesShowWhatIsSet) {
    notifier->setChatNotificationsEnabled(false);
    open();
    EXPECT_TRUE(find<QCheckBox>("bounceIcon")->isChecked());
    EXPECT_FALSE(find<QCheckBox>("chatNotifications")->isChecked());
    EXPECT_TRUE(find<QCheckBox>("joinNotifications")->isChecked());
    EXPECT_THAT(defaults.values, testing::SizeIs(1)) << "showing a setting is not setting it";
}

// ---- export

TEST_F(PrefsVCTest, ExportMakesAPaperKeyOfTheSecretKey) {
    open();
    button("secretKeyExport")->click();
    EXPECT_THAT(exported, IsEmpty());
    settle();
    EXPECT_THAT(exported, ElementsAre(own));
}

TEST_F(PrefsVCTest, ExportWithAFailingKeychainDoesNothingThatIsSeen) {
    open();
    session.secrets.failAll(SecretStatuses::authFailed);
    button("secretKeyExport")->click();
    settle();
    EXPECT_THAT(exported, IsEmpty());
    EXPECT_EQ(alert(), nullptr);
    EXPECT_EQ(publicKey(), keyTextOf(1));
}

TEST_F(PrefsVCTest, WhatIsExportedAndShownIsWhatAnotherProgramHasStoredMeanwhile) {
    open();
    session.secrets.items.clear();
    session.secrets.put(other);
    button("secretKeyExport")->click();
    settle();
    EXPECT_THAT(exported, ElementsAre(other));
    window->hide();
    window->show();
    settle();
    EXPECT_EQ(publicKey(), keyTextOf(2));
}

TEST_F(PrefsVCTest, AnExportThatComesBehindTheClosingOfTheWindowIsDropped) {
    open();
    button("secretKeyExport")->click();
    window->close();
    settle();
    EXPECT_THAT(exported, IsEmpty());
}

// ---- replacement

TEST_F(PrefsVCTest, CancellingTheSheetLeavesThePublicKey) {
    open();
    openSheet();
    QTest::keyClick(sheet(), Qt::Key_Escape);
    EXPECT_EQ(sheet(), nullptr);
    settle();
    EXPECT_EQ(publicKey(), keyTextOf(1));
    EXPECT_EQ(stored(), own);
}

TEST_F(PrefsVCTest, ThereIsOneSheetAtATime) {
    open();
    openSheet();
    auto* first = sheet();
    window->prefsVC().secretKeyReplaceHit();
    EXPECT_EQ(sheet(), first);
    EXPECT_EQ(first->windowModality(), Qt::WindowModal);
    EXPECT_EQ(window->findChildren<KeyReplaceWindow*>().size(), 1);
}

TEST_F(PrefsVCTest, ANewRandomKeyIsStoredAndShownWhileTheSessionGoesOnAsWhoItWas) {
    session.startConnected({listed(1), listed(3)});
    notifier.reset(new Notifier({session.loop, *session.kit, defaults, sounds, notifications, attention}));
    open();
    openSheet();
    QTest::keyClick(sheet(), Qt::Key_Return);
    settle();
    EXPECT_EQ(sheet(), nullptr);
    EXPECT_EQ(alert(), nullptr);
    EXPECT_NE(stored(), own);
    EXPECT_EQ(publicKey(), publicKeyOf(stored()));

    EXPECT_EQ(session.kit->state().publicKey, keyTextOf(1));
    session.kit->send("still me", "");
    session.loop.run();
    const auto packs = session.server().takePacks();
    ASSERT_FALSE(packs.empty());
    for (const auto& pack : packs) EXPECT_EQ(Nacl::hex(pack.authorKey), keyTextOf(1));

    session.start();
    EXPECT_EQ(session.kit->state().publicKey, publicKey());
}

TEST_F(PrefsVCTest, AScannedKeyIsStoredAndShown) {
    open();
    openSheet();
    sheet()->findChild<QRadioButton*>("scanRadio")->click();
    QTest::keyClick(sheet(), Qt::Key_Return);
    scan(other);
    sheet()->findChild<QPushButton*>("replaceButton")->click();
    settle();
    EXPECT_EQ(stored(), other);
    EXPECT_EQ(publicKey(), keyTextOf(2));
}

TEST_F(PrefsVCTest, AFailedWriteIsToldInTheWordsOfTheStoreAndTheOldKeyStays) {
    open();
    session.secrets.restartCount();
    session.secrets.failCall(2, SecretStatuses::userCanceled);  // the update fails, after the search
    openSheet();
    QTest::keyClick(sheet(), Qt::Key_Return);
    EXPECT_EQ(sheet(), nullptr);
    settle();
    QMessageBox* box = alert();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->text(), "Could not update the keychain");
    EXPECT_EQ(box->informativeText(), "status -128");
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    EXPECT_EQ(box->parentWidget()->window(), &*window);
    EXPECT_EQ(stored(), own);
    EXPECT_EQ(publicKey(), keyTextOf(1));
    QTest::keyClick(box, Qt::Key_Return);
    EXPECT_EQ(alert(), nullptr);
}

TEST_F(PrefsVCTest, WhateverCallFailsTheOldKeyStaysAndTheUserIsTold) {
    for (const bool isScanned : {false, true}) {
        for (std::size_t call = 1;; ++call) {
            session.secrets.items.clear();
            session.secrets.put(own);
            open();
            openSheet();
            if (isScanned) {
                sheet()->findChild<QRadioButton*>("scanRadio")->click();
                QTest::keyClick(sheet(), Qt::Key_Return);
                scan(other);
            }
            session.secrets.restartCount();
            session.secrets.failCall(call, SecretStatuses::authFailed);
            sheet()->findChild<QPushButton*>("replaceButton")->click();
            worker.step();
            const std::size_t callsOfTheWrite = session.secrets.calls.size();
            settle();
            EXPECT_EQ(alert() != nullptr, callsOfTheWrite >= call);
            if (callsOfTheWrite >= call) {
                EXPECT_EQ(stored(), own) << call;
            }
            window.reset();
            session.secrets.failNone();
            if (callsOfTheWrite < call) {
                EXPECT_NE(stored(), own);
                break;
            }
        }
    }
}

// ---- a slow store

TEST_F(PrefsVCTest, WhileTheStoreThinksTheButtonsAreOffAndASpinnerTurns) {
    open();
    auto* spinner = find<Spinner>("spinner");
    window->activateWindow();
    button("secretKeyExport")->setFocus();
    button("secretKeyExport")->click();
    EXPECT_FALSE(spinner->isVisible()) << "what takes a moment only is not worth a flicker";
    session.loop.advance(0.3);
    EXPECT_TRUE(spinner->isVisible());
    EXPECT_FALSE(button("secretKeyReplace")->isEnabled());
    EXPECT_FALSE(button("secretKeyExport")->isEnabled());
    EXPECT_TRUE(find<QCheckBox>("bounceIcon")->isEnabled());
    session.loop.advance(25);
    settle();
    EXPECT_FALSE(spinner->isVisible());
    EXPECT_TRUE(button("secretKeyReplace")->isEnabled());
    EXPECT_TRUE(button("secretKeyExport")->isEnabled());
    EXPECT_EQ(window->focusWidget(), button("secretKeyExport")) << "the keyboard has lost its place";
    EXPECT_THAT(exported, ElementsAre(own));
}

TEST_F(PrefsVCTest, WhileSomethingIsUnderWayNothingElseIsAskedFor) {
    open();
    button("secretKeyExport")->click();
    button("secretKeyExport")->click();
    button("secretKeyReplace")->click();
    EXPECT_EQ(sheet(), nullptr);
    EXPECT_EQ(worker.waiting(), 1u);
    settle();
    EXPECT_THAT(exported, ElementsAre(own));
}

TEST_F(PrefsVCTest, AKeyThatWasAskedForIsWrittenThoughTheWindowHasGone) {
    open();
    openSheet();
    QTest::keyClick(sheet(), Qt::Key_Return);
    window.reset();
    settle();
    EXPECT_NE(stored(), own);
}

TEST_F(PrefsVCTest, AWriteThatFailsBehindTheClosingOfTheWindowIsStillTold) {
    open();
    session.secrets.failAll(SecretStatuses::notAvailable);
    openSheet();
    QTest::keyClick(sheet(), Qt::Key_Return);
    window->close();
    settle();
    ASSERT_NE(alert(), nullptr);
    EXPECT_EQ(alert()->text(), "Could not update the keychain");
}

TEST_F(PrefsVCTest, AtTheEndOfTheProgramNothingIsToldAnyMore) {
    open();
    session.secrets.failAll(SecretStatuses::notAvailable);
    openSheet();
    QTest::keyClick(sheet(), Qt::Key_Return);
    keys->abandon();
    settle();
    EXPECT_EQ(alert(), nullptr);
}

// ---- window and keyboard

TEST_F(PrefsVCTest, EscapeHidesTheWindowAndItsSheetGoesAlong) {
    open();
    QTest::keyClick(&*window, Qt::Key_Escape);
    EXPECT_FALSE(window->isVisible());
    window->show();
    settle();
    openSheet();
    QPointer<KeyReplaceWindow> open = sheet();
    window->hide();
    EXPECT_FALSE(open->isVisible());
    EXPECT_EQ(sheet(), nullptr);
}

TEST_F(PrefsVCTest, ReturnInTheFormPressesNothing) {
    open();
    find<QCheckBox>("bounceIcon")->setFocus();
    QTest::keyClick(window->focusWidget(), Qt::Key_Return);
    EXPECT_EQ(sheet(), nullptr);
    EXPECT_TRUE(window->isVisible());
    EXPECT_FALSE(window->prefsVC().isBusy());
}

TEST_F(PrefsVCTest, TabGoesFromTheTopToTheBottom) {
    open();
    window->activateWindow();
    find<KeyField>("publicKeyValue")->setFocus();
    std::vector<std::string> order;
    for (int i = 0; i < 6; ++i) {
        order.push_back(window->focusWidget()->objectName().toStdString());
        QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
    }
    EXPECT_THAT(order, ElementsAre("publicKeyValue", "secretKeyReplace", "secretKeyExport", "bounceIcon",
                                   "chatNotifications", "joinNotifications"));
}

}  // namespace
