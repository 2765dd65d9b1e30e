#include "DesktopKit/PassphraseDialog.h"

#include <QLabel>
#include <QLineEdit>
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using Reason = SealedFileStore::Reason;

class PassphraseDialogTest : public testing::Test {
protected:
    static QList<QLineEdit*> fields(PassphraseDialog& dialog) { return dialog.findChildren<QLineEdit*>(); }
    static QPushButton* ok(PassphraseDialog& dialog) {
        for (QPushButton* button : dialog.findChildren<QPushButton*>())
            if (button->isDefault() || button->text().contains("OK")) return button;
        return nullptr;
    }
    static std::string shown(PassphraseDialog& dialog) {
        QString text;
        for (const QLabel* label : dialog.findChildren<QLabel*>()) text += label->text() + '\n';
        return text.toStdString();
    }
    static std::string text(const Passphrase& passphrase) {
        return {passphrase.view().begin(), passphrase.view().end()};
    }
};

TEST_F(PassphraseDialogTest, AnEmptyPassphraseCantBeGiven) {
    PassphraseDialog dialog(Reason::existingFile, "/home/ann/secret", false);
    ASSERT_THAT(fields(dialog), testing::SizeIs(1));
    EXPECT_FALSE(ok(dialog)->isEnabled());
    QTest::keyClicks(fields(dialog)[0], "x");
    EXPECT_TRUE(ok(dialog)->isEnabled());
}

TEST_F(PassphraseDialogTest, ANewOneIsTypedTwiceUntilTheTwoAgree) {
    PassphraseDialog dialog(Reason::newFile, "/home/ann/secret", false);
    ASSERT_THAT(fields(dialog), testing::SizeIs(2));
    QTest::keyClicks(fields(dialog)[0], "secret");
    EXPECT_FALSE(ok(dialog)->isEnabled());
    QTest::keyClicks(fields(dialog)[1], "secre");
    EXPECT_FALSE(ok(dialog)->isEnabled());
    EXPECT_THAT(shown(dialog), testing::HasSubstr("The two differ."));
    QTest::keyClicks(fields(dialog)[1], "t");
    EXPECT_TRUE(ok(dialog)->isEnabled());
    EXPECT_THAT(shown(dialog), testing::Not(testing::HasSubstr("The two differ.")));
}

TEST_F(PassphraseDialogTest, WhatIsTypedIsHiddenAndTakenOnce) {
    PassphraseDialog dialog(Reason::existingFile, "/home/ann/secret", false);
    fields(dialog)[0]->setText(QStringLiteral("grüße"));
    EXPECT_EQ(fields(dialog)[0]->echoMode(), QLineEdit::Password);
    EXPECT_EQ(text(dialog.take()), "grüße");
    EXPECT_TRUE(fields(dialog)[0]->text().isEmpty());
    EXPECT_TRUE(dialog.take().isEmpty());
}

TEST_F(PassphraseDialogTest, AfterAWrongOneItSaysSo) {
    PassphraseDialog dialog(Reason::existingFile, "/home/ann/secret", true);
    EXPECT_THAT(shown(dialog), testing::HasSubstr("That was not the passphrase."));
    EXPECT_THAT(shown(dialog), testing::HasSubstr("/home/ann/secret"));
}

TEST_F(PassphraseDialogTest, ItsLengthIsCountedInBytes) {
    PassphraseDialog dialog(Reason::existingFile, "/home/ann/secret", false);
    fields(dialog)[0]->setText(QString(PassphraseDialog::maximumBytes / 2, QChar(u'ü')));
    EXPECT_TRUE(ok(dialog)->isEnabled());
    fields(dialog)[0]->setText(QString(PassphraseDialog::maximumBytes / 2 + 1, QChar(u'ü')));
    EXPECT_FALSE(ok(dialog)->isEnabled());
}

}  // namespace
