#include "DesktopKit/AuthVC.h"

#include "DesktopKit/QrDialog.h"
#include "DesktopKit/ShareMenu.h"
#include "DesktopViews/KeyField.h"
#include "QtText/QtText.h"
#include "TestSupport/Session.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QUrlQuery>
#include <QWheelEvent>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

class AuthVCTest : public testing::Test {
protected:
    void show(std::optional<std::string> previewKey = {}) {
        auth = std::make_unique<AuthVC>(*session.kit, nullptr, std::move(previewKey));
        auth->resize(200, 400);
        auth->show();
        QApplication::setActiveWindow(auth.get());
        QApplication::processEvents();
    }
    void startAndShow() {
        session.start();
        show();
    }

    template <class Child>
    Child& child(const char* name) const {
        return *auth->findChild<Child*>(QLatin1String(name));
    }
    QComboBox& combo() const { return child<QComboBox>("serverCombo"); }
    QPushButton& connectButton() const { return child<QPushButton>("connectButton"); }
    KeyField& copyField() const { return child<KeyField>("copyField"); }
    QLabel& hint() const { return child<QLabel>("hintLabel"); }
    /// Replaces the text in the field by typing.
    void type(const QString& text) {
        combo().setFocus();
        combo().lineEdit()->selectAll();
        QTest::keyClick(&combo(), Qt::Key_Delete);
        if (!text.isEmpty()) QTest::keyClicks(&combo(), text);
    }
    std::optional<std::string> chosen() const {
        const auto& endpoint = session.kit->state().endpoint;
        return endpoint ? std::optional(endpoint->url()) : std::nullopt;
    }
    QAction& shareAction(const QString& text) const {
        for (QAction* action : child<ShareMenu>("shareMenu").actions())
            if (action->text() == text) return *action;
        throw std::runtime_error("no such action");
    }

    Session session;
    std::unique_ptr<AuthVC> auth;
};

TEST(AuthStateTest, WithoutAServerTheDefaultOneIsOffered) {
    EXPECT_EQ(AuthVC::LocalState(nullptr).publicKey, "");
    EXPECT_EQ(AuthVC::LocalState(nullptr).endpointInput, Endpoint::defaultEndpoint().displayString());
    State state;
    state.publicKey = "abc";
    EXPECT_EQ(AuthVC::LocalState(&state).publicKey, "abc");
    EXPECT_EQ(AuthVC::LocalState(&state).endpointInput, Endpoint::defaultEndpoint().displayString());
    state.endpoint = Endpoint("http://localhost:8080");
    EXPECT_EQ(AuthVC::LocalState(&state).endpointInput, "localhost");
}

TEST_F(AuthVCTest, ShowsTheMessageTheKeyAndTheDefaultServer) {
    startAndShow();
    EXPECT_EQ(child<QLabel>("expLabel").text(),
              QStringLiteral("For access, send your public key shown below to Tolvik. Use a trusted communication tool "
                             "to be confident the key was not tampered with in transit."));
    EXPECT_EQ(copyField().key(), toQt(session.own));
    EXPECT_TRUE(copyField().isReadOnly());
    EXPECT_EQ(combo().currentText(), toQt(Endpoint::defaultEndpoint().displayString()));
    EXPECT_EQ(combo().count(), 1);
    EXPECT_EQ("https://" + combo().itemText(0), toQt(Endpoint::defaultEndpoint().url()));
    EXPECT_EQ(combo().maxVisibleItems(), 5);
    EXPECT_TRUE(combo().isEditable());
    EXPECT_EQ(connectButton().text(), QStringLiteral("Connect"));
    EXPECT_TRUE(connectButton().isDefault());
    EXPECT_TRUE(connectButton().isEnabled());
    EXPECT_TRUE(hint().isHidden());
}

TEST_F(AuthVCTest, TheButtonIsEnabledForWhatMakesAnEndpoint) {
    startAndShow();
    const std::vector<std::pair<QString, bool>> cases = {
        {"", false},         {"  ", false},          {"word", false},  {"localhost", true},
        {"a.example", true}, {"a b.example", false}, {"word.", false}, {"https://a.example", true},
        {"vimble:x", true},  {"a.example/p", true}};
    for (const auto& [text, isEnabled] : cases) {
        type(text);
        EXPECT_EQ(connectButton().isEnabled(), isEnabled) << text.toStdString();
    }
}

TEST_F(AuthVCTest, ConnectChoosesTheServerAndConnects) {
    startAndShow();
    type("chat.example.org");
    QTest::mouseClick(&connectButton(), Qt::LeftButton);
    EXPECT_EQ(chosen(), "https://chat.example.org");
    EXPECT_EQ(session.kit->state().connection, Connection::offline);
    session.loop.run();
    EXPECT_EQ(session.transport.links.size(), 1U);
}

TEST_F(AuthVCTest, ReturnConnectsFromAnywhere) {
    for (const char* name : {"serverCombo", "connectButton", "copyField", "shareButton"}) {
        session.start();
        session.kit->setEndpoint(session.otherEndpoint);
        session.kit->disconnect();
        show();
        combo().setEditText("chat.example.org");
        auto& control = child<QWidget>(name);
        control.setFocus();
        QTest::keyClick(&control, Qt::Key_Return);
        EXPECT_EQ(chosen(), "https://chat.example.org") << name;
        EXPECT_EQ(session.kit->state().connection, Connection::offline) << name;
        EXPECT_FALSE(child<ShareMenu>("shareMenu").isVisible());
        auth.reset();
    }
}

TEST_F(AuthVCTest, ReturnWithNothingThatConnectsDoesNothing) {
    startAndShow();
    type("word");
    QTest::keyClick(&combo(), Qt::Key_Return);
    connectButton().setFocus();
    QTest::keyClick(auth.get(), Qt::Key_Return);
    EXPECT_FALSE(chosen());
    EXPECT_EQ(session.kit->state().connection, Connection::setup);
}

TEST_F(AuthVCTest, ConnectingToTheServerInUseResetsNothing) {
    session.startConnected({listed(1), listed(2)});
    session.kit->disconnect();
    show();
    ASSERT_EQ(session.kit->state().people.size(), 2U);
    QTest::mouseClick(&connectButton(), Qt::LeftButton);
    EXPECT_EQ(session.kit->state().people.size(), 2U);
    EXPECT_EQ(session.kit->state().connection, Connection::offline);
}

TEST_F(AuthVCTest, AStateChangeMovesTheFieldUnlessItIsBeingTypedIn) {
    startAndShow();
    connectButton().setFocus();
    session.kit->setEndpoint(session.endpoint);
    EXPECT_EQ(combo().currentText(), QStringLiteral("chat.example.org"));
    type("mine.exam");
    session.kit->setEndpoint(session.otherEndpoint);
    EXPECT_EQ(combo().currentText(), QStringLiteral("mine.exam"));
    EXPECT_EQ(copyField().key(), toQt(session.own));
    connectButton().setFocus();
    session.kit->setEndpoint(session.endpoint);
    EXPECT_EQ(combo().currentText(), QStringLiteral("chat.example.org"));
}

TEST_F(AuthVCTest, AStateChangeWhileTypingStillMovesTheKey) {
    startAndShow();
    type("mine.exam");
    copyField().setKey("stale");
    session.kit->setEndpoint(session.otherEndpoint);
    EXPECT_EQ(copyField().key(), toQt(session.own));
    EXPECT_EQ(combo().currentText(), QStringLiteral("mine.exam"));
}

TEST_F(AuthVCTest, ThePickedEntryIsTheServerUntilSomethingIsTyped) {
    startAndShow();
    type("word");
    ASSERT_FALSE(connectButton().isEnabled());
    QTest::keyClick(&combo(), Qt::Key_Down);
    EXPECT_TRUE(connectButton().isEnabled());
    EXPECT_EQ(combo().currentText(), AuthVC::defaultServer);
    QTest::keyClick(&combo(), Qt::Key_Return);
    EXPECT_EQ(chosen(), Endpoint::defaultEndpoint().url());
    type("chat.example.org");
    QTest::keyClick(&combo(), Qt::Key_Return);
    EXPECT_EQ(chosen(), "https://chat.example.org");
}

TEST_F(AuthVCTest, TypingTheBeginningOfTheEntryCompletesIt) {
    startAndShow();
    type(AuthVC::defaultServer.left(4));
    EXPECT_EQ(combo().currentText(), AuthVC::defaultServer);
    EXPECT_EQ(combo().lineEdit()->selectedText(), AuthVC::defaultServer.mid(4));
}

TEST_F(AuthVCTest, AnAddressWithoutAHostIsExplainedAndNotTried) {
    startAndShow();
    type("localhost:8080");
    EXPECT_TRUE(connectButton().isEnabled());
    QTest::keyClick(&combo(), Qt::Key_Return);
    EXPECT_FALSE(chosen());
    EXPECT_EQ(session.kit->state().connection, Connection::setup);
    EXPECT_TRUE(hint().isVisible());
    EXPECT_TRUE(hint().text().contains(QStringLiteral("https://chat.example.org:8443")));
    QTest::keyClick(&combo(), Qt::Key_Backspace);
    EXPECT_FALSE(hint().isVisible());
    type("http://localhost:8080");
    QTest::keyClick(&combo(), Qt::Key_Return);
    EXPECT_EQ(chosen(), "http://localhost:8080");
}

TEST_F(AuthVCTest, ScrollingOverTheServerLeavesItAlone) {
    startAndShow();
    type("mine.exam");
    QWheelEvent wheel({5, 5}, combo().mapToGlobal(QPointF(5, 5)), {}, {0, -120}, Qt::NoButton, {}, Qt::NoScrollPhase,
                      false);
    QApplication::sendEvent(&combo(), &wheel);
    EXPECT_EQ(combo().currentText(), QStringLiteral("mine.exam"));
}

TEST_F(AuthVCTest, ThePreviewShowsItsKeyAndFollowsNoSession) {
    session.start();
    show(std::string(64, 'e'));
    EXPECT_EQ(copyField().key(), QString(64, 'e'));
    session.kit->setEndpoint(session.endpoint);
    EXPECT_EQ(combo().currentText(), toQt(Endpoint::defaultEndpoint().displayString()));
    EXPECT_EQ(copyField().key(), QString(64, 'e'));
    QTest::mouseClick(&connectButton(), Qt::LeftButton);
    EXPECT_EQ(session.kit->state().connection, Connection::setup);
}

TEST_F(AuthVCTest, TheKeyIsWhollyVisibleInEvenLinesAndCopiedBare) {
    startAndShow();
    EXPECT_EQ(copyField().lineLength(), 16);
    for (const auto& [width, length] : {std::pair{200, 16}, std::pair{400, 32}}) {
        auth->resize(width, 500);
        QApplication::processEvents();
        EXPECT_EQ(copyField().lineLength(), length);
        // Every character is on the line that its position demands, inside the field.
        QTextCursor cursor(copyField().document());
        for (int at = 0; at < 64; ++at) {
            cursor.setPosition(at);
            const QRect place = copyField().cursorRect(cursor);
            EXPECT_EQ(place.top() - copyField().cursorRect(QTextCursor(copyField().document())).top(),
                      at / length * place.height())
                << at << " at " << width;
            EXPECT_TRUE(copyField().viewport()->rect().contains(place.center())) << at << " at " << width;
        }
    }
    copyField().selectAll();
    copyField().copy();
    EXPECT_EQ(QApplication::clipboard()->text(), toQt(session.own));
}

TEST_F(AuthVCTest, NothingIsCutOffInTheWindowsFirstSize) {
    startAndShow();
    EXPECT_LE(auth->widget()->height(), 400);
    EXPECT_EQ(auth->widget()->width(), 200);
    auto& message = child<QLabel>("expLabel");
    EXPECT_GE(message.height(), message.heightForWidth(message.width()));
}

TEST_F(AuthVCTest, ShareOpensAMenuFromMouseAndKeyboard) {
    startAndShow();
    auto& menu = child<ShareMenu>("shareMenu");
    auto& share = child<QPushButton>("shareButton");
    QTest::mouseClick(&share, Qt::LeftButton);
    EXPECT_TRUE(menu.isVisible());
    menu.close();
    share.setFocus();
    QTest::keyClick(&share, Qt::Key_Space);
    EXPECT_TRUE(menu.isVisible());
    menu.close();
    QStringList texts;
    for (const QAction* action : menu.actions()) texts.append(action->text());
    EXPECT_EQ(texts, (QStringList{"Copy", "Show as QR Code...", "Send by E-mail..."}));
}

TEST_F(AuthVCTest, ShareCopiesTheKey) {
    startAndShow();
    QApplication::clipboard()->clear();
    child<QPushButton>("shareButton").click();
    shareAction("Copy").trigger();
    EXPECT_EQ(QApplication::clipboard()->text(), toQt(session.own));
}

TEST_F(AuthVCTest, SharingByMailSaysWhatTheKeyIs) {
    startAndShow();
    std::vector<QUrl> urls;
    auth->setOpenUrl([&](const QUrl& url) {
        urls.push_back(url);
        return true;
    });
    child<QPushButton>("shareButton").click();
    shareAction("Send by E-mail...").trigger();
    ASSERT_EQ(urls.size(), 1U);
    EXPECT_EQ(urls[0].scheme(), QStringLiteral("mailto"));
    EXPECT_TRUE(urls[0].isValid());
    const QUrlQuery query(urls[0]);
    EXPECT_EQ(query.queryItemValue("subject", QUrl::FullyDecoded), QStringLiteral("My public key for Vimble"));
    const QString body = query.queryItemValue("body", QUrl::FullyDecoded);
    EXPECT_TRUE(body.contains(QStringLiteral("public key for Vimble")));
    EXPECT_TRUE(body.contains("\r\n" + toQt(session.own) + "\r\n"));
    const QByteArray encoded = urls[0].toEncoded();
    EXPECT_FALSE(encoded.contains(' ') || encoded.contains('+') || encoded.contains('\n')) << encoded.toStdString();
    EXPECT_TRUE(encoded.contains("%0D%0A"));
    EXPECT_TRUE(hint().isHidden());
}

TEST_F(AuthVCTest, WithoutAMailProgramTheHintSaysSo) {
    startAndShow();
    auth->setOpenUrl([](const QUrl&) { return false; });
    child<QPushButton>("shareButton").click();
    shareAction("Send by E-mail...").trigger();
    EXPECT_TRUE(hint().isVisible());
}

TEST_F(AuthVCTest, TheQrCodeIsAWindowModalDialogThatEscapeCloses) {
    startAndShow();
    child<QPushButton>("shareButton").click();
    shareAction("Show as QR Code...").trigger();
    auto* dialog = auth->findChild<QrDialog*>();
    ASSERT_TRUE(dialog);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_EQ(dialog->windowModality(), Qt::WindowModal);
    QTest::keyClick(dialog, Qt::Key_Escape);
    EXPECT_FALSE(dialog->isVisible());
}

TEST_F(AuthVCTest, EveryControlHasAnAccessibleName) {
    startAndShow();
    const auto nameOf = [&](const char* name) {
        return QAccessible::queryAccessibleInterface(&child<QWidget>(name))->text(QAccessible::Name);
    };
    EXPECT_EQ(nameOf("serverCombo"), combo().currentText());
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&combo())->text(QAccessible::Description),
              QStringLiteral("Server"));
    EXPECT_EQ(nameOf("copyField"), QStringLiteral("Your public key"));
    EXPECT_EQ(nameOf("shareButton"), QStringLiteral("Share your public key"));
    EXPECT_EQ(nameOf("connectButton"), QStringLiteral("Connect"));
    EXPECT_EQ(nameOf("appIcon"), QStringLiteral("Vimble"));
    EXPECT_EQ(nameOf("expLabel"), AuthVC::accessMessage);
}

}  // namespace
