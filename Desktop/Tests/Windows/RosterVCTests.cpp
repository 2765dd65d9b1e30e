#include "RosterFixture.h"

#include "DesktopViews/Look.h"

#include <gmock/gmock.h>

#include <QAccessible>
#include <QElapsedTimer>
#include <QFrame>
#include <QHelpEvent>
#include <QItemSelectionModel>
#include <QLabel>
#include <QPixmap>
#include <QScrollBar>
#include <QToolTip>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

State stateWith(const std::vector<Person>& people) {
    State state;
    for (const Person& person : people) state.people.set(person.publicKey, person);
    return state;
}

TEST(RosterStateTest, WithoutAStateThereIsNobody) {
    const RosterVC::LocalState none(nullptr);
    EXPECT_FALSE(none.isOnline);
    EXPECT_TRUE(none.roster.empty());
    EXPECT_FALSE(none.user);
}

TEST(RosterStateTest, OnlyPeopleOnlineAreListedByPlainOrderOfNameAndThenKey) {
    const State state = stateWith({{"cc", "ann", "", false, true},
                                   {"bb", "Zoe", "", false, true},
                                   {"aa", "Gone", "", false, false},
                                   {"ee", "Ann", "", false, true},
                                   {"dd", "Ann", "", false, true},
                                   {"0123456", "", "", false, true}});
    std::vector<std::string> keys;
    for (const Person& person : RosterVC::LocalState(&state).roster) keys.push_back(person.publicKey);
    EXPECT_THAT(keys, ElementsAre("dd", "ee", "bb", "cc", "0123456"));
}

TEST(RosterStateTest, ItIsTheStatesOwnRosterWithoutThoseWhoAreAway) {
    State state = stateWith({{"a", "x", "", false, true}, {"b", "y", "", false, false}, {"c", "", "", false, true}});
    state.publicKey = "b";
    std::vector<Person> expected = state.roster();
    std::erase_if(expected, [](const Person& person) { return !person.isOnline; });
    const RosterVC::LocalState local(&state);
    EXPECT_EQ(local.roster, expected);
    EXPECT_EQ(local.user, *state.me());
}

TEST(RosterStateTest, OnlineMeansConnectedAndNothingElse) {
    State state;
    for (const auto connection : {Connection::setup, Connection::offline, Connection::online}) {
        state.connection = connection;
        EXPECT_EQ(RosterVC::LocalState(&state).isOnline, connection == Connection::online);
    }
}

TEST(PersonViewTest, WhoIsOnlineStandsOutAndOthersArePaler) {
    const QPalette palette;
    const auto online = PersonView::style(true, palette);
    EXPECT_EQ(online.emojiOpacity, 1);
    EXPECT_EQ(online.color, Look::label(palette));
    EXPECT_EQ(online.weight, QFont::Medium);
    const auto offline = PersonView::style(false, palette);
    EXPECT_EQ(offline.emojiOpacity, 0.5);
    EXPECT_EQ(offline.color, Look::secondaryLabel(palette));
    EXPECT_EQ(offline.weight, QFont::Normal);
}

TEST(PersonViewTest, ARowIs24PointsHigh) { EXPECT_EQ(PersonView::rowHeight(), 24); }

TEST_F(RosterTest, WithoutAConnectionItIsEmptyNamelessAndSpinning) {
    session.start();
    watchLines();
    show();
    EXPECT_EQ(child<ElidedLabel>("meNameLabel").text(), QStringLiteral("•••"));
    EXPECT_EQ(child<ElidedLabel>("meEmojiLabel").text(), QString());
    EXPECT_EQ(statusItems(), QStringList{"Offline"});
    EXPECT_FALSE(child<StatusPopUp>("meStatusDropdown").isEnabled());
    EXPECT_FALSE(child<StatusPopUp>("meStatusDropdown").isArrowVisible());
    EXPECT_TRUE(child<Spinner>("spinner").isSpinning());
    EXPECT_TRUE(child<Spinner>("spinner").isVisible());
    EXPECT_TRUE(child<Spinner>("spinner").isAnimating());
    EXPECT_EQ(table().model()->rowCount(), 0);
    EXPECT_TRUE(wasPrinted("Transitioning Offline"));
    EXPECT_FALSE(wasPrinted("Transitioning Online"));
}

TEST_F(RosterTest, OnceOnlineItShowsTheUserTheStatusesAndNoSpinner) {
    connect({1, 2});
    session.kit->setName("Rose");
    session.kit->setEmoji("🌹");
    watchLines();
    show();
    EXPECT_EQ(child<ElidedLabel>("meNameLabel").text(), QStringLiteral("Rose"));
    EXPECT_EQ(child<ElidedLabel>("meEmojiLabel").text(), QStringLiteral("🌹"));
    EXPECT_EQ(statusItems(), (QStringList{"Available", "Idle", "Away"}));
    EXPECT_TRUE(child<StatusPopUp>("meStatusDropdown").isEnabled());
    EXPECT_TRUE(child<StatusPopUp>("meStatusDropdown").isArrowVisible());
    EXPECT_FALSE(child<Spinner>("spinner").isSpinning());
    EXPECT_FALSE(child<Spinner>("spinner").isVisible());
    EXPECT_TRUE(wasPrinted("Transitioning Online"));
}

TEST_F(RosterTest, ALostLinkBringsTheOfflineLookBack) {
    connect({1, 2});
    show();
    watchLines();
    goOffline();
    EXPECT_EQ(statusItems(), QStringList{"Offline"});
    EXPECT_TRUE(child<Spinner>("spinner").isAnimating());
    EXPECT_TRUE(wasPrinted("Transitioning Offline"));
    roster->hide();
    EXPECT_FALSE(child<Spinner>("spinner").isAnimating());
    roster->show();
    EXPECT_TRUE(child<Spinner>("spinner").isAnimating());
}

TEST_F(RosterTest, WhyThereIsNoLinkIsToldPlainlyUntilThereIsOne) {
    connect({1, 2});
    show();
    auto& trouble = child<QLabel>("troubleLabel");
    roster->showTrouble("told too late");
    EXPECT_FALSE(trouble.isVisible());
    goOffline();
    roster->showTrouble("<b>chat.example.org</b>\nrefused " + std::string(1000, 'x'));
    EXPECT_TRUE(trouble.isVisible());
    EXPECT_EQ(trouble.textFormat(), Qt::PlainText);
    EXPECT_TRUE(trouble.text().startsWith(QStringLiteral("<b>chat.example.org</b>\\nrefused xxx")));
    EXPECT_LE(trouble.text().size(), 301);
    session.loop.advance(2);
    session.server().accept(list({1, 2}));
    ASSERT_EQ(session.kit->state().connection, Connection::online);
    EXPECT_FALSE(trouble.isVisible());
    goOffline();
    EXPECT_FALSE(trouble.isVisible());
}

TEST_F(RosterTest, AChoiceOfStatusIsPrintedAndFallsBackAtTheNextChange) {
    connect({1, 2});
    show();
    auto& dropdown = child<StatusPopUp>("meStatusDropdown");
    watchLines();
    const State before = session.kit->state();
    dropdown.setFocus();
    QTest::keyClick(&dropdown, Qt::Key_End);
    EXPECT_EQ(dropdown.currentText(), QStringLiteral("Away"));
    EXPECT_THAT(lines, ElementsAre("Status Dropdown Hit"));
    EXPECT_EQ(session.kit->state(), before);
    EXPECT_THAT(session.server().takePacks(), IsEmpty());
    sayName(2, "Ann");
    EXPECT_EQ(dropdown.currentText(), QStringLiteral("Available"));
}

TEST_F(RosterTest, PeopleOfOneNameStandByKeyAndWhoLeavesDisappears) {
    connect({1, 2, 3});
    show();
    for (const std::uint8_t number : {1, 2, 3}) {
        if (number > 1) sayName(number, "Ann");
    }
    session.kit->setName("Zoe");
    EXPECT_EQ(names(), (QStringList{"Ann", "Ann", "Zoe"}));
    const bool isSecondFirst = keyTextOf(2) < keyTextOf(3);
    table().selectRow(0);
    QTest::keyClick(&table(), Qt::Key_Return);
    EXPECT_THAT(opened.take(), ElementsAre(keyTextOf(isSecondFirst ? 2 : 3)));
    session.server().sendList({listed(1), listed(2), listed(3, false)});
    EXPECT_EQ(names(), (QStringList{"Ann", "Zoe"}));
}

TEST_F(RosterTest, TheUsersOwnRowOpensLikeAnyOther) {
    connect({1});
    show();
    doubleClick(middleOf(0));
    EXPECT_THAT(opened.take(), ElementsAre(session.own));
}

TEST_F(RosterTest, ReturnEnterAndSpaceOpenTheSelectedRowAndNothingWithoutOne) {
    connect({1, 2, 3});
    show();
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
        table().selectRow(-1);
        QTest::keyClick(&table(), key);
        EXPECT_THAT(opened.take(), IsEmpty());
        table().selectRow(1);
        QTest::keyClick(&table(), key);
        EXPECT_EQ(opened.take().size(), 1U);
    }
}

TEST_F(RosterTest, TheFirstDownSelectsTheFirstRowAndTheNextTheSecond) {
    connect({1, 2, 3});
    show();
    table().setFocus();
    QTest::keyClick(&table(), Qt::Key_Down);
    EXPECT_EQ(table().selectedRow(), 0);
    QTest::keyClick(&table(), Qt::Key_Down);
    EXPECT_EQ(table().selectedRow(), 1);
    QTest::keyClick(&table(), Qt::Key_Return);
    EXPECT_EQ(opened.take().size(), 1U);
}

TEST_F(RosterTest, AClickSelectsAndOneBesideTheRowsSelectsNone) {
    connect({1, 2, 3});
    show();
    click(middleOf(1));
    EXPECT_EQ(table().selectedRow(), 1);
    click(besideRows());
    EXPECT_EQ(table().selectedRow(), -1);
    EXPECT_THAT(opened.take(), IsEmpty());
}

TEST_F(RosterTest, ADoubleClickOpensItsRowOnce) {
    connect({1, 2, 3});
    show();
    doubleClick(middleOf(2));
    EXPECT_EQ(opened.take().size(), 1U);
    EXPECT_EQ(table().selectedRow(), 2);
}

TEST_F(RosterTest, ADoubleClickBesideTheRowsOpensTheSelectedOne) {
    connect({1, 2, 3});
    show();
    click(middleOf(1));
    QTest::keyClick(&table(), Qt::Key_Return);
    const auto expected = opened.take();
    doubleClick(besideRows());
    EXPECT_EQ(opened.take(), expected);
    EXPECT_EQ(table().selectedRow(), 1);
}

TEST_F(RosterTest, ADoubleClickBesideTheRowsLongAfterTheyWereDeselectedOpensNothing) {
    connect({1, 2, 3});
    show();
    click(middleOf(1));
    click(besideRows());
    doubleClick(besideRows());
    EXPECT_THAT(opened.take(), IsEmpty());
}

TEST_F(RosterTest, ARightClickBesideTheRowsLeavesTheSelection) {
    connect({1, 2, 3});
    show();
    click(middleOf(1));
    QTest::mouseClick(table().viewport(), Qt::RightButton, {}, besideRows());
    EXPECT_EQ(table().selectedRow(), 1);
}

TEST_F(RosterTest, ADelegateThatHasGoneIsNotAsked) {
    connect({1});
    show();
    {
        OpenedConversations passing;
        roster->setDelegate(&passing);
    }
    table().selectRow(0);
    QTest::keyClick(&table(), Qt::Key_Return);
    EXPECT_THAT(opened.take(), IsEmpty());
}

TEST_F(RosterTest, TheMenuCopiesTheKeyOfTheRowThatWasClicked) {
    connect({1, 2, 3});
    show();
    table().selectRow(0);
    QContextMenuEvent ask(QContextMenuEvent::Mouse, middleOf(2), table().viewport()->mapToGlobal(middleOf(2)));
    QApplication::sendEvent(table().viewport(), &ask);
    auto& menu = child<QMenu>("context");
    ASSERT_TRUE(menu.isVisible());
    ASSERT_EQ(menu.actions().size(), 1);
    EXPECT_EQ(menu.actions().first()->text(), QStringLiteral("Copy Public Key"));
    EXPECT_TRUE(menu.actions().first()->isEnabled());
    const QString key = toQt(RosterVC::LocalState(&session.kit->state()).roster[2].publicKey);
    // The list changes while the menu is open: the first person in it leaves.
    std::vector<MetaPerson> people;
    for (const std::uint8_t number : {1, 2, 3})
        people.push_back(
            listed(number, keyTextOf(number) != RosterVC::LocalState(&session.kit->state()).roster[0].publicKey));
    session.server().sendList(people);
    menu.actions().first()->trigger();
    menu.close();
    EXPECT_EQ(QApplication::clipboard()->text(), key);
}

TEST_F(RosterTest, TheMenuKeyIsForTheSelectedRowAndDisabledWithoutOne) {
    connect({1, 2, 3});
    show();
    auto& menu = child<QMenu>("context");
    auto& copy = child<QAction>("contextCopy");
    const auto ask = [&](QContextMenuEvent::Reason reason, QPoint place, QWidget* widget) {
        QContextMenuEvent event(reason, place, widget->mapToGlobal(place));
        QApplication::sendEvent(widget, &event);
        EXPECT_TRUE(menu.isVisible());
    };
    ask(QContextMenuEvent::Keyboard, {0, 0}, &table());
    EXPECT_FALSE(copy.isEnabled());
    menu.close();
    ask(QContextMenuEvent::Mouse, besideRows(), table().viewport());
    EXPECT_FALSE(copy.isEnabled());
    menu.close();
    table().selectRow(1);
    for (const bool isMouse : {false, true}) {
        QApplication::clipboard()->clear();
        if (isMouse)
            ask(QContextMenuEvent::Mouse, besideRows(), table().viewport());
        else
            ask(QContextMenuEvent::Keyboard, {0, 0}, &table());
        EXPECT_TRUE(copy.isEnabled());
        copy.trigger();
        menu.close();
        EXPECT_EQ(QApplication::clipboard()->text(),
                  toQt(RosterVC::LocalState(&session.kit->state()).roster[1].publicKey));
    }
}

TEST_F(RosterTest, WhoLeavesWhileTheirMenuIsOpenIsNotCopied) {
    connect({1, 2});
    show();
    QApplication::clipboard()->setText("before");
    const std::string gone = keyTextOf(2);
    table().selectRow(session.own == RosterVC::LocalState(&session.kit->state()).roster[0].publicKey ? 1 : 0);
    QContextMenuEvent ask(QContextMenuEvent::Keyboard, {0, 0}, table().mapToGlobal(QPoint()));
    QApplication::sendEvent(&table(), &ask);
    session.server().sendList({listed(1), listed(2, false)});
    child<QAction>("contextCopy").trigger();
    child<QMenu>("context").close();
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("before"));
}

TEST_F(RosterTest, TheSelectionStaysWithThePersonAcrossReloads) {
    connect({1, 2, 3});
    sayName(2, "B");
    sayName(3, "C");
    session.kit->setName("D");
    show();
    ASSERT_EQ(names(), (QStringList{"B", "C", "D"}));
    table().selectRow(1);
    sayName(2, "X");
    ASSERT_EQ(names(), (QStringList{"C", "D", "X"}));
    EXPECT_EQ(table().selectedRow(), 0);
    session.server().sendList({listed(1), listed(2), listed(3, false)});
    EXPECT_EQ(table().selectedRow(), -1);
}

TEST_F(RosterTest, ReloadingLeavesWhatIsBeingLookedAtWhereItIs) {
    std::vector<std::uint8_t> numbers;
    for (std::uint8_t number = 1; number <= 60; ++number) numbers.push_back(number);
    connect(numbers);
    show();
    auto& bar = *table().verticalScrollBar();
    bar.setValue(500);
    ASSERT_EQ(bar.value(), 500);
    const QString top = table().indexAt({0, 0}).data().toString();
    const auto everybody = RosterVC::LocalState(&session.kit->state()).roster;
    std::vector<MetaPerson> people = list(numbers);
    for (MetaPerson& person : people)
        for (int row = 0; row < 5; ++row)
            if (person.publicKey == everybody[static_cast<std::size_t>(row)].publicKey) person.isOnline = false;
    session.server().sendList(people);
    QApplication::processEvents();
    EXPECT_EQ(table().model()->rowCount(), 55);
    EXPECT_EQ(table().indexAt({0, 0}).data().toString(), top);
    EXPECT_EQ(bar.value(), 500 - 5 * 24);

    bar.setValue(0);
    session.server().sendList(list(numbers));
    QApplication::processEvents();
    EXPECT_EQ(bar.value(), 0);
}

TEST_F(RosterTest, NothingIsReloadedForAStateThatLeavesThePeopleAlone) {
    connect({1, 2});
    show();
    watchLines();
    session.server().relay(keysOf(2), {"room", "", "", "hi"});
    ASSERT_EQ(session.kit->state().room.messages.size(), 1U);
    EXPECT_FALSE(wasPrinted("Transitioning Online"));
}

TEST_F(RosterTest, HostileNamesStandPlainlyOnOneLine) {
    connect({1, 2, 3, 4});
    sayName(2, "<b>Ann</b>\nlives\there", "<i>x</i>");
    sayName(3, "evil\xe2\x80\xaegnp.exe");
    sayName(4, std::string(10000, 'a'), std::string(10000, 'b'));
    show();
    const QStringList shown = names();
    EXPECT_TRUE(shown.contains(QStringLiteral("<b>Ann</b> lives here"))) << shown.join("|").toStdString();
    EXPECT_TRUE(shown.contains(QStringLiteral("evilgnp.exe")));
    for (const QString& name : shown) EXPECT_LE(name.size(), 201);
    EXPECT_FALSE(roster->grab().isNull());
}

TEST_F(RosterTest, ALongNameIsCutOffAndStandsWholeInItsToolTip) {
    connect({1, 2});
    sayName(2, "Bartholomew <i>Featherstonehaugh</i>-Cholmondeley");
    session.kit->setName("Zoe");
    show();
    QHelpEvent ask(QEvent::ToolTip, middleOf(0), table().viewport()->mapToGlobal(middleOf(0)));
    QApplication::sendEvent(table().viewport(), &ask);
    ASSERT_TRUE(QToolTip::isVisible());
    EXPECT_TRUE(QToolTip::text().contains(QStringLiteral("&lt;i&gt;Featherstonehaugh&lt;/i&gt;")));
    QHelpEvent other(QEvent::ToolTip, middleOf(1), table().viewport()->mapToGlobal(middleOf(1)));
    QApplication::sendEvent(table().viewport(), &other);
    EXPECT_FALSE(QToolTip::isVisible() && QToolTip::text().contains(QStringLiteral("Zoe")));
    QToolTip::hideText();
}

TEST_F(RosterTest, EveryRowAndControlHasAnAccessibleName) {
    connect({1, 2});
    sayName(2, "Ann");
    session.kit->setName("Zoe");
    show();
    QAccessibleInterface* rows = QAccessible::queryAccessibleInterface(&table());
    ASSERT_TRUE(rows);
    EXPECT_EQ(rows->text(QAccessible::Name), QStringLiteral("People"));
    QStringList spoken;
    for (int at = 0; at < rows->childCount(); ++at) spoken.append(rows->child(at)->text(QAccessible::Name));
    EXPECT_EQ(spoken, (QStringList{"Ann, online", "Zoe, online"}));
    const auto nameOf = [&](const char* name) {
        return QAccessible::queryAccessibleInterface(roster->findChild<QWidget*>(QLatin1String(name)))
            ->text(QAccessible::Name);
    };
    auto& dropdown = child<StatusPopUp>("meStatusDropdown");
    EXPECT_EQ(nameOf("meStatusDropdown"), QStringLiteral("Available"));
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&dropdown)->text(QAccessible::Description),
              QStringLiteral("Status"));
    EXPECT_EQ(nameOf("meNameLabel"), QStringLiteral("Zoe"));
    EXPECT_EQ(nameOf("spinner"), QStringLiteral("Connecting"));
    EXPECT_EQ(nameOf("roomRow"), QStringLiteral("Room"));
}

TEST_F(RosterTest, AnotherPaletteColoursTheDividerAnew) {
    connect({1});
    show();
    const auto colour = [&] { return child<QFrame>("divider").grab().toImage().pixel(5, 0); };
    const QRgb before = colour();
    QPalette dark = roster->palette();
    dark.setColor(QPalette::Base, Qt::black);
    dark.setColor(QPalette::Text, Qt::white);
    roster->setPalette(dark);
    EXPECT_EQ(colour(), Look::divider(dark).rgb());
    EXPECT_NE(colour(), before);
}

}  // namespace
