#pragma once

#include "DesktopKit/PersonView.h"
#include "DesktopKit/RosterTableView.h"
#include "DesktopKit/RosterWindow.h"
#include "DesktopViews/ElidedLabel.h"
#include "DesktopViews/Spinner.h"
#include "DesktopViews/StatusPopUp.h"
#include "QtText/QtText.h"
#include "StateKit/Log.h"
#include "TestSupport/Session.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QMenu>
#include <QMouseEvent>
#include <QTest>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Notes the keys of the people whose conversations are opened.
struct OpenedConversations final : SignalTarget, RosterVCDelegate, RosterWindowDelegate {
    void openConversation(const Person& person) override { keys.push_back(person.publicKey); }
    std::vector<std::string> take() { return std::exchange(keys, {}); }

    std::vector<std::string> keys;
};

/// A session whose user is connected, and the list of people on it.
class RosterTest : public testing::Test {
protected:
    ~RosterTest() override { DebugLines::setPrint(printBefore); }

    void show(int width = 200, int height = 400) {
        roster = std::make_unique<RosterVC>(*session.kit);
        roster->setDelegate(&opened);
        roster->resize(width, height);
        roster->show();
        QApplication::setActiveWindow(roster.get());
        QApplication::processEvents();
    }

    /// Connects with those people online.
    void connect(const std::vector<std::uint8_t>& numbers) { session.startConnected(list(numbers)); }
    static std::vector<MetaPerson> list(const std::vector<std::uint8_t>& numbers) {
        std::vector<MetaPerson> people;
        for (const std::uint8_t number : numbers) people.push_back(listed(number));
        return people;
    }
    void sayName(std::uint8_t number, const std::string& name, const std::string& emoji = "") {
        session.server().relay(keysOf(number), {std::nullopt, name, emoji, std::nullopt});
    }
    void goOffline() {
        session.server().link->fail();
        session.loop.run();
    }

    template <class Child>
    Child& child(const char* name) const {
        return *roster->findChild<Child*>(QLatin1String(name));
    }
    RosterTableView& table() const { return child<RosterTableView>("table"); }
    QStringList names() const {
        QStringList texts;
        for (int row = 0; row < table().model()->rowCount(); ++row)
            texts.append(table().model()->index(row, 0).data().toString());
        return texts;
    }
    QStringList statusItems() const {
        const auto& dropdown = child<StatusPopUp>("meStatusDropdown");
        QStringList texts;
        for (int index = 0; index < dropdown.count(); ++index) texts.append(dropdown.itemText(index));
        return texts;
    }
    QPoint middleOf(int row) const { return table().visualRect(table().model()->index(row, 0)).center(); }
    QPoint besideRows() const { return {50, table().viewport()->height() - 3}; }
    void click(QPoint place) { QTest::mouseClick(table().viewport(), Qt::LeftButton, {}, place); }
    /// Sends what a window system sends for a double-click: a whole click first, then the double-click.
    void doubleClick(QPoint place) {
        QTest::mouseClick(table().viewport(), Qt::LeftButton, {}, place);
        QMouseEvent second(QEvent::MouseButtonDblClick, place, table().viewport()->mapToGlobal(place), Qt::LeftButton,
                           Qt::LeftButton, {});
        QApplication::sendEvent(table().viewport(), &second);
        QTest::mouseRelease(table().viewport(), Qt::LeftButton, {}, place);
    }

    /// Collects the lines that the engine and the list print from now on.
    static void watchLines() {
        lines.clear();
        DebugLines::setPrint([](std::string_view line) { lines.emplace_back(line); });
    }
    static bool wasPrinted(const std::string& line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    static inline std::vector<std::string> lines;

    Session session;
    OpenedConversations opened;
    std::unique_ptr<RosterVC> roster;

private:
    DebugLines::Print printBefore = DebugLines::setPrint(nullptr);
};
