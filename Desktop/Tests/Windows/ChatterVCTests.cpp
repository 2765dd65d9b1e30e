#include "DesktopKit/ChatterVC.h"
#include "TalkWorld.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QScrollBar>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ChatterVCTest : public testing::Test {
protected:
    void open(const std::string& with) {
        vc = std::make_unique<ChatterVC>(world.kit(), world.session.loop, with);
        vc->resize(512, 384);
    }
    void openWithAnn() { open(world.annKey); }

    TalkWorld::Strings rows() const { return TalkWorld::rows(vc->output()); }
    std::string typed() { return TalkWorld::typed(vc->input()); }
    void type(const QString& text) { TalkWorld::type(vc->input(), text); }
    std::int64_t readCount() { return world.state().conversations.find(world.annKey)->readCount; }

    TalkWorld world;
    std::unique_ptr<ChatterVC> vc;
};

// ---- the transcript

TEST_F(ChatterVCTest, ATalkThatHasNotBegunIsEmpty) {
    openWithAnn();
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_EQ(vc->with(), world.annKey);
}

TEST_F(ChatterVCTest, ShowsTheTalkWithThatPersonAndNoOther) {
    world.annSays("before");
    openWithAnn();
    world.says(world.bob, {std::nullopt, "Bob", "🦉", "from Bob"});
    world.says(world.ann, {"room", "Ann", "🐙", "to all"});
    world.annSays("after");
    EXPECT_THAT(rows(), ElementsAre("daybreak", "text: before", "text: after"));
    const auto& row = std::get<Transcript::Text>(vc->output().transcript().items[1]);
    EXPECT_EQ(row.emoji.string(), "🐙");
    EXPECT_EQ(row.author.string(), world.annKey);
    EXPECT_EQ(row.toolTip.string(), world.annKey);
}

TEST_F(ChatterVCTest, ANewNameOfThePartnerIsOneActivityAtOnce) {
    openWithAnn();
    world.annIsCalled("Anna");
    EXPECT_THAT(rows(), ElementsAre("daybreak", "activity: Ann name → Anna"));
    EXPECT_EQ(vc->activities().size(), 1u);
}

TEST_F(ChatterVCTest, ANewEmojiOfThePartnerBeginsWithTheirName) {
    openWithAnn();
    world.says(world.ann, {std::nullopt, "Ann", "🦊", std::nullopt});
    EXPECT_THAT(rows(), ElementsAre("daybreak", "activity: Ann emoji → 🦊"));
}

TEST_F(ChatterVCTest, AMessageThatBringsANewNameGoesBeforeItsActivity) {
    openWithAnn();
    world.says(world.ann, {std::nullopt, "Anna", "🐙", "it is me"});
    EXPECT_THAT(rows(), ElementsAre("daybreak", "text: it is me", "activity: Ann name → Anna"));
}

TEST_F(ChatterVCTest, AnEventFromBeforeIsNoActivity) {
    world.annIsCalled("Anna");
    openWithAnn();
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_THAT(vc->activities(), IsEmpty());
}

TEST_F(ChatterVCTest, ANewNameOfAnotherPersonAddsNothing) {
    openWithAnn();
    world.says(world.bob, {std::nullopt, "Bobby", "🐓", std::nullopt});
    EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(ChatterVCTest, ComingGoingBeingAddedOrRemovedAddNothing) {
    openWithAnn();
    world.session.server().sendList({listed(1), listed(2, false), listed(3)});
    world.session.server().sendList({listed(1), listed(3)});
    world.session.server().sendList({listed(1), listed(2), listed(3)});
    EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(ChatterVCTest, AnEmptyNameIsTheAnonymousFormInAnActivity) {
    openWithAnn();
    world.annIsCalled("");
    EXPECT_THAT(rows(), ElementsAre("daybreak", "activity: Ann name → anonymous" + world.annKey.substr(0, 6)));
}

TEST_F(ChatterVCTest, ANameCantDisturbTheWordsBesideItInAnActivity) {
    openWithAnn();
    world.annIsCalled("a\u202Eb\nc");
    ASSERT_EQ(vc->activities().size(), 1u);
    const std::string text = vc->activities()[0].text;
    EXPECT_EQ(text.find("\u202E"), std::string::npos);
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_THAT(text, HasSubstr("Ann name → a"));
}

TEST_F(ChatterVCTest, ActivitiesGoWithTheWindow) {
    openWithAnn();
    world.annIsCalled("Anna");
    world.annSays("text");
    openWithAnn();
    EXPECT_THAT(rows(), ElementsAre("daybreak", "text: text"));
}

TEST_F(ChatterVCTest, SomebodyWhoIsNoLongerListedKeepsTheirWords) {
    world.annSays("before");
    openWithAnn();
    world.session.server().sendList({listed(1)});
    EXPECT_THAT(rows(), ElementsAre("daybreak", "text: before"));
    EXPECT_EQ(std::get<Transcript::Text>(vc->output().transcript().items[1]).emoji.string(), "😐");
}

TEST_F(ChatterVCTest, AnotherServerIsAnotherTalk) {
    world.annSays("before");
    openWithAnn();
    world.kit().setEndpoint(world.session.otherEndpoint);
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_TRUE(vc->input().isOffline());
}

TEST_F(ChatterVCTest, OnceGoneItHearsNothingMore) {
    openWithAnn();
    vc.reset();
    world.annSays("to nobody");
    world.annIsCalled("Anna");
    EXPECT_EQ(world.state().conversations.find(world.annKey)->messages.size(), 1u);
}

TEST_F(ChatterVCTest, RowsAreReadAloudWithTheNameThatHoldsNow) {
    world.annSays("text");
    openWithAnn();
    EXPECT_TRUE(vc->output().spokenRow(1).startsWith("Ann, "));
    world.annIsCalled("Anna");
    EXPECT_TRUE(vc->output().spokenRow(1).startsWith("Anna, "));
    EXPECT_EQ(vc->output().accessibleName(), "Transcript");
    EXPECT_FALSE(vc->input().textView().accessibleName().isEmpty());
}

TEST_F(ChatterVCTest, TheHeadingOfADayGoesByTheSessionsClock) {
    world.annSays("text");
    openWithAnn();
    EXPECT_EQ(vc->output().spokenRow(0), "Today");
    world.session.loop.advance(10 * 24 * 3600.0);
    openWithAnn();
    EXPECT_NE(vc->output().spokenRow(0), "Today");
}

// ---- the pill

TEST_F(ChatterVCTest, ThePillStandsExactlyWhileThereIsNoLink) {
    openWithAnn();
    EXPECT_FALSE(vc->input().isOffline());
    world.loseLink();
    EXPECT_TRUE(vc->input().isOffline());
    world.findLink();
    EXPECT_FALSE(vc->input().isOffline());
    world.kit().disconnect();  // "setup" is not online either
    EXPECT_TRUE(vc->input().isOffline());
}

// ---- what is typed

TEST_F(ChatterVCTest, ATextGoesToThatReaderSealedAndComesBackThroughTheState) {
    openWithAnn();
    type("hello, Ann");
    EXPECT_EQ(typed(), "");
    EXPECT_THAT(world.takeRecords(world.ann), ElementsAre(PackPlaintext{std::nullopt, "", "", "hello, Ann"}));
    EXPECT_THAT(rows(), ElementsAre("daybreak", "text: hello, Ann"));
    world.session.loop.run();
    EXPECT_EQ(typed(), "");
}

TEST_F(ChatterVCTest, ATextGoesToNobodyElse) {
    openWithAnn();
    type("hello, Ann");
    const auto packs = world.session.server().takePacks();
    ASSERT_EQ(packs.size(), 1u);
    EXPECT_EQ(packs[0].targetKey, world.ann.publicKey);
    EXPECT_FALSE(recordIn(packs[0], world.bob));
}

TEST_F(ChatterVCTest, AnEmptyTextIsSentToo) {
    openWithAnn();
    type("");
    EXPECT_THAT(world.takeRecords(world.ann), ElementsAre(PackPlaintext{std::nullopt, "", "", ""}));
}

TEST_F(ChatterVCTest, ALoneSlashIsNothing) {
    openWithAnn();
    type("/");
    EXPECT_THAT(world.session.server().takePacks(), IsEmpty());
    EXPECT_THAT(rows(), IsEmpty());
    world.session.loop.run();
    EXPECT_EQ(typed(), "");
}

TEST_F(ChatterVCTest, ASlashAndAWordAreACommandAndNoMessage) {
    openWithAnn();
    type("/who is there");
    EXPECT_THAT(world.session.server().takeCommands(), ElementsAre("who is there"));
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_EQ(typed(), "");
}

TEST_F(ChatterVCTest, TwoSlashesAreACommandThatBeginsWithOne) {
    openWithAnn();
    type("//x");
    EXPECT_THAT(world.session.server().takeCommands(), ElementsAre("/x"));
}

TEST_F(ChatterVCTest, ASlashFurtherOnIsText) {
    openWithAnn();
    type(" /who");
    EXPECT_THAT(rows(), ElementsAre("daybreak", "text:  /who"));
}

TEST_F(ChatterVCTest, TheCommandNameChangesTheUsersName) {
    openWithAnn();
    type("/name Zoe");
    ASSERT_TRUE(world.state().me());
    EXPECT_EQ(world.state().me()->name, "Zoe");
    EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(ChatterVCTest, SubmittingIsNeverRefused) {
    openWithAnn();
    EXPECT_TRUE(vc->didSubmit("text"));
    EXPECT_TRUE(vc->didSubmit("/"));
    EXPECT_TRUE(vc->didSubmit(""));
    world.loseLink();
    EXPECT_TRUE(vc->didSubmit("text"));
    open("no key");
    EXPECT_TRUE(vc->didSubmit("text"));
}

// ---- what could not be sent

TEST_F(ChatterVCTest, ATextWithoutALinkComesBackIntoTheInput) {
    openWithAnn();
    world.loseLink();
    type("are you there?");
    EXPECT_EQ(typed(), "");
    world.session.loop.run();
    EXPECT_EQ(typed(), "are you there?");
    EXPECT_TRUE(vc->input().textView().textCursor().atEnd());
    EXPECT_THAT(rows(), IsEmpty());

    world.findLink();
    EXPECT_THAT(world.takeRecords(world.ann), IsEmpty());  // nothing is sent without the user
    QTest::keyClick(&vc->input().textView(), Qt::Key_Return);
    EXPECT_THAT(world.takeRecords(world.ann), ElementsAre(PackPlaintext{std::nullopt, "", "", "are you there?"}));
    world.session.loop.run();
    EXPECT_EQ(typed(), "");
}

TEST_F(ChatterVCTest, LinesComeBackAsTheyWere) {
    openWithAnn();
    world.loseLink();
    QTest::keyClicks(&vc->input().textView(), "one");
    QTest::keyClick(&vc->input().textView(), Qt::Key_Return, Qt::ShiftModifier);
    type("two");
    world.session.loop.run();
    EXPECT_EQ(typed(), "one\ntwo");
}

TEST_F(ChatterVCTest, WhatComesBackStandsBeforeWhatWasTypedMeanwhile) {
    openWithAnn();
    world.loseLink();
    type("first");
    QTest::keyClicks(&vc->input().textView(), "second");
    world.session.loop.run();
    EXPECT_EQ(typed(), "first\nsecond");
}

TEST_F(ChatterVCTest, NothingComesBackOfAnEmptyTextOrALoneSlash) {
    openWithAnn();
    world.loseLink();
    type("");
    type("/");
    world.session.loop.run();
    EXPECT_EQ(typed(), "");
}

TEST_F(ChatterVCTest, ACommandWithoutALinkComesBackWithItsSlash) {
    openWithAnn();
    world.loseLink();
    type("/name Zoe");
    world.session.loop.run();
    EXPECT_EQ(typed(), "/name Zoe");
    EXPECT_EQ(world.state().me()->name, "");
}

TEST_F(ChatterVCTest, ATextComesBackFromALinkThatDoesNotListTheUser) {
    world.session.server().sendList({listed(2)});
    openWithAnn();
    ASSERT_FALSE(world.kit().canSend());
    type("am I here?");
    world.session.loop.run();
    EXPECT_EQ(typed(), "am I here?");
}

TEST_F(ChatterVCTest, AnErrorIsLoggedWithoutTheTextWhichComesBack) {
    open("no key");
    world.session.log.take();
    type("secret words");
    world.session.loop.run();
    EXPECT_EQ(typed(), "secret words");
    const auto lines = world.session.log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0], HasSubstr("Failed to send: "));
    EXPECT_EQ(lines[0].find("secret"), std::string::npos);
}

TEST_F(ChatterVCTest, AKeyOfTheWrongSizeIsAnErrorThatDoesNotGoFurther) {
    open("abcd");
    type("words");
    world.session.loop.run();
    EXPECT_EQ(typed(), "words");
}

TEST_F(ChatterVCTest, AWindowThatClosesBeforeItsTextComesBackHarmsNobody) {
    openWithAnn();
    world.loseLink();
    type("too late");
    vc.reset();
    world.session.loop.run();
}

// ---- appearing

TEST_F(ChatterVCTest, TheTalkIsReadWhenItAppearsAndNotBefore) {
    world.annSays("one");
    openWithAnn();
    EXPECT_EQ(readCount(), 0);
    vc->show();
    EXPECT_EQ(readCount(), 1);
}

TEST_F(ChatterVCTest, WhatComesWhileItIsOpenStaysUnreadUntilItAppearsAnew) {
    openWithAnn();
    vc->show();
    world.annSays("one");
    type("two");
    EXPECT_EQ(readCount(), 0);
    vc->hide();
    EXPECT_EQ(readCount(), 0);
    vc->show();
    EXPECT_EQ(readCount(), 2);
}

TEST_F(ChatterVCTest, AWindowThatComesBackMinimisedHasNotAppeared) {
    world.annSays("one");
    openWithAnn();
    vc->showMinimized();
    EXPECT_EQ(readCount(), 0);
    vc->hide();
    vc->showNormal();
    EXPECT_EQ(readCount(), 1);
}

TEST_F(ChatterVCTest, OtherTalksStayUnread) {
    world.says(world.bob, {std::nullopt, "Bob", "🦉", "from Bob"});
    openWithAnn();
    vc->show();
    EXPECT_EQ(world.state().conversations.find(world.bobKey)->readCount, 0);
}

TEST_F(ChatterVCTest, EachAppearanceBringsTheFocusToTheInput) {
    openWithAnn();
    vc->show();
    EXPECT_EQ(vc->focusWidget(), &vc->input().textView());
    vc->output().setFocus();
    EXPECT_NE(vc->focusWidget(), &vc->input().textView());
    vc->hide();
    vc->show();
    EXPECT_EQ(vc->focusWidget(), &vc->input().textView());
}

// ---- the keyboard

TEST_F(ChatterVCTest, TabGoesFromTheInputToTheTranscriptAndBack) {
    openWithAnn();
    vc->show();
    vc->activateWindow();
    QTest::keyClick(&vc->input().textView(), Qt::Key_Tab);
    EXPECT_EQ(vc->focusWidget(), &vc->output());
    QTest::keyClick(&vc->output(), Qt::Key_Backtab, Qt::ShiftModifier);
    EXPECT_EQ(vc->focusWidget(), &vc->input().textView());
}

TEST_F(ChatterVCTest, LettersTypedAtTheTranscriptGoToTheInput) {
    openWithAnn();
    vc->show();
    vc->output().setFocus();
    QTest::keyClicks(&vc->output(), "H");
    EXPECT_EQ(vc->focusWidget(), &vc->input().textView());
    EXPECT_EQ(typed(), "H");
}

TEST_F(ChatterVCTest, PastingAtTheTranscriptGoesToTheInput) {
    openWithAnn();
    vc->show();
    vc->output().setFocus();
    QGuiApplication::clipboard()->setText("pasted");
    QTest::keyClick(&vc->output(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(typed(), "pasted");
    EXPECT_EQ(vc->focusWidget(), &vc->input().textView());
}

TEST_F(ChatterVCTest, KeysThatWriteNothingStayAtTheTranscript) {
    openWithAnn();
    vc->show();
    vc->output().setFocus();
    QTest::keyClick(&vc->output(), Qt::Key_C, Qt::ControlModifier);
    QTest::keyClick(&vc->output(), Qt::Key_A, Qt::AltModifier);
    QTest::keyClick(&vc->output(), Qt::Key_Up);
    QTest::keyClick(&vc->output(), Qt::Key_Shift);
    EXPECT_NE(vc->focusWidget(), &vc->input().textView());
    EXPECT_EQ(typed(), "");
}

TEST_F(ChatterVCTest, PageKeysInTheInputScrollTheTranscript) {
    for (int number = 0; number < 60; ++number) world.annSays("message " + std::to_string(number));
    openWithAnn();
    vc->show();
    QCoreApplication::processEvents();
    auto& view = vc->output();
    ASSERT_TRUE(view.isAtEnd());
    const int end = view.verticalScrollBar()->value();
    QTest::keyClick(&vc->input().textView(), Qt::Key_PageUp);
    EXPECT_LT(view.verticalScrollBar()->value(), end);
    EXPECT_FALSE(view.isAtEnd());
    QTest::keyClick(&vc->input().textView(), Qt::Key_PageDown);
    EXPECT_TRUE(view.isAtEnd());
    EXPECT_EQ(vc->focusWidget(), &vc->input().textView());
}

// ---- the look

TEST_F(ChatterVCTest, TheInputIsFortyPointsHighBelowADividerBelowTheTranscript) {
    openWithAnn();
    vc->show();
    const QFont before = QApplication::font();
    const auto top = [this](const QWidget& part) { return part.mapTo(vc.get(), QPoint()).y(); };
    const int height = vc->input().height();
    EXPECT_EQ(height, 40);
    EXPECT_EQ(top(vc->output()), 0);
    EXPECT_EQ(top(vc->input()) + height, vc->height());
    EXPECT_EQ(vc->output().height() + 1 + height, vc->height());
    EXPECT_EQ(vc->output().width(), vc->width());
    EXPECT_EQ(vc->input().width(), vc->width());

    QFont large = before;
    large.setPointSizeF(before.pointSizeF() * 2);
    QApplication::setFont(large);
    QCoreApplication::processEvents();
    EXPECT_GE(vc->input().height(), height * 3 / 2);
    QApplication::setFont(before);
    QCoreApplication::processEvents();
    EXPECT_EQ(vc->input().height(), height);
}

TEST(UnlistedChatterVCTest, ANameThatNobodyCouldHearComesBackIntoTheInput) {
    Session session;
    session.startConnected({listed(2)});
    ASSERT_FALSE(session.kit->canSend());
    ChatterVC vc(*session.kit, session.loop, keyTextOf(2));
    for (const char* command : {"/name Rose", "/emoji 🌹"}) {
        vc.input().textView().setPlainText(QString::fromUtf8(command));
        QTest::keyClick(&vc.input().textView(), Qt::Key_Return);
        session.loop.run();
        EXPECT_EQ(TalkWorld::typed(vc.input()), command);
    }
    vc.input().textView().setPlainText(QString());
    TalkWorld::type(vc.input(), QStringLiteral("/who"));
    session.loop.run();
    EXPECT_EQ(TalkWorld::typed(vc.input()), "");
}

}  // namespace
