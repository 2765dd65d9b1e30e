#include "DesktopViews/ConsoleOutputView.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QGuiApplication>
#include <QHelpEvent>
#include <QMimeData>
#include <QScrollBar>
#include <QTest>
#include <QTextBlock>
#include <QToolTip>
#include <QVBoxLayout>

#include <random>
#include <string>

namespace {

class ConsoleOutputViewTest : public testing::Test {
protected:
    ConsoleOutputViewTest() {
        // This is 2026-11-15 15:31:51.9 UTC.
        now = Date::fromUnix(1794756711.9);
        view.resize(400, 200);
        view.show();
    }

    void appendLines(int count) {
        for (int line = 0; line < count; ++line) view.append("line " + std::to_string(line));
    }
    QScrollBar& bar() { return *view.verticalScrollBar(); }
    bool isLastLineVisible() {
        const QTextBlock last = view.document()->lastBlock();
        QTextCursor cursor(last);
        cursor.movePosition(QTextCursor::End);
        return view.viewport()->rect().contains(view.cursorRect(cursor).center());
    }
    QPoint middleOf(int line) {
        QTextCursor cursor(view.document()->findBlockByNumber(line));
        return view.cursorRect(cursor).center();
    }
    QString copied() {
        view.copy();
        return QGuiApplication::clipboard()->text();
    }

    Date now;
    ConsoleOutputView view{[this] { return now; }};
};

}  // namespace

TEST_F(ConsoleOutputViewTest, TheFirstLineHasNoLineEndAndTheSecondHasOneBefore) {
    EXPECT_EQ(view.toPlainText(), "");
    view.append("one");
    EXPECT_EQ(view.toPlainText(), "one");
    view.append("two");
    EXPECT_EQ(view.toPlainText(), "one\ntwo");
}

TEST_F(ConsoleOutputViewTest, AnEmptyLineIsALine) {
    view.append("one");
    view.append("");
    view.append("three");
    EXPECT_EQ(view.toPlainText(), "one\n\nthree");
}

TEST_F(ConsoleOutputViewTest, FollowsItsEndWhileItStandsThere) {
    appendLines(100);
    EXPECT_EQ(bar().value(), bar().maximum());
    EXPECT_GT(bar().maximum(), 0);
    EXPECT_TRUE(isLastLineVisible());
}

TEST_F(ConsoleOutputViewTest, StaysWhereItWasScrolledToHoweverLittle) {
    appendLines(100);
    bar().setValue(bar().maximum() - 1);
    const int scrolled = bar().value();
    const int top = view.cursorForPosition({0, 0}).blockNumber();
    appendLines(50);
    EXPECT_EQ(bar().value(), scrolled);
    EXPECT_EQ(view.cursorForPosition({0, 0}).blockNumber(), top);

    bar().setValue(bar().maximum());
    appendLines(1);
    EXPECT_TRUE(isLastLineVisible());
}

TEST_F(ConsoleOutputViewTest, WrittenWhileHiddenItOpensAtItsEnd) {
    view.hide();
    appendLines(500);
    view.show();
    EXPECT_EQ(bar().value(), bar().maximum());
    EXPECT_TRUE(isLastLineVisible());
}

TEST_F(ConsoleOutputViewTest, ShownForTheFirstTimeItOpensAtItsEnd) {
    ConsoleOutputView fresh([this] { return now; });
    for (int line = 0; line < 500; ++line) fresh.append(std::string(300, 'x'));
    fresh.resize(400, 200);
    fresh.show();
    QCoreApplication::processEvents();
    EXPECT_EQ(fresh.verticalScrollBar()->value(), fresh.verticalScrollBar()->maximum());
    EXPECT_GT(fresh.verticalScrollBar()->maximum(), 400);
    QTextCursor cursor(fresh.document());
    cursor.movePosition(QTextCursor::End);
    EXPECT_TRUE(fresh.viewport()->rect().contains(fresh.cursorRect(cursor).center()));
}

TEST_F(ConsoleOutputViewTest, ShownForTheFirstTimeAShortLogHasNoScrollBar) {
    QWidget window;
    auto* layout = new QVBoxLayout(&window);
    auto* fresh = new ConsoleOutputView([this] { return now; });
    layout->addWidget(fresh);
    window.resize(400, 300);
    for (int line = 0; line < 5; ++line) fresh->append("line");
    window.show();
    QCoreApplication::processEvents();
    EXPECT_EQ(fresh->verticalScrollBar()->maximum(), 0);
    EXPECT_FALSE(fresh->verticalScrollBar()->isVisible());
}

TEST_F(ConsoleOutputViewTest, HiddenAndShownAgainItStaysWhereItWasScrolledTo) {
    appendLines(500);
    bar().setValue(100);
    view.hide();
    appendLines(10);
    view.show();
    EXPECT_EQ(bar().value(), 100);
}

TEST_F(ConsoleOutputViewTest, LinesOfEveryLengthLeaveItAtItsEnd) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> lengths(0, 700);
    std::uniform_int_distribution<int> widths(100, 500);
    for (int turn = 0; turn < 300; ++turn) {
        view.append(std::string(static_cast<std::size_t>(lengths(random)), 'w'));
        if (turn % 10 == 0) view.resize(widths(random), 200);
        if (turn % 7 == 0) view.grab();
        ASSERT_TRUE(isLastLineVisible()) << "turn " << turn;
        ASSERT_EQ(bar().value(), bar().maximum()) << "turn " << turn;
    }
}

TEST_F(ConsoleOutputViewTest, CanBeReadAndCopiedButNotWritten) {
    view.append("one");
    view.append("two");
    QTest::keyClicks(&view, "xyz");
    QTest::keyClick(&view, Qt::Key_Delete);
    EXPECT_EQ(view.toPlainText(), "one\ntwo");
    EXPECT_FALSE(view.isUndoRedoEnabled());
    EXPECT_EQ(view.horizontalScrollBarPolicy(), Qt::ScrollBarAlwaysOff);
    EXPECT_EQ(view.accessibleName(), "Console log");

    view.selectAll();
    EXPECT_EQ(copied(), "one\ntwo");
    EXPECT_FALSE(QGuiApplication::clipboard()->mimeData()->hasHtml());
}

TEST_F(ConsoleOutputViewTest, ALineCopiesAsItStands) {
    view.append("a\u00a0b 😀 <b>c</b> \\d");
    view.append("next");
    QTextCursor cursor(view.document());
    cursor.setPosition(2);
    cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
    cursor.movePosition(QTextCursor::Left, QTextCursor::KeepAnchor);
    view.setTextCursor(cursor);
    EXPECT_EQ(copied(), QString::fromUtf8("b 😀 <b>c</b> \\d\nnex"));
}

TEST_F(ConsoleOutputViewTest, AVeryLongLineCopiesAsOne) {
    std::string line;
    for (int number = 0; line.size() < 100000; ++number) line += std::to_string(number) + "é😀";
    view.append("before");
    view.append(line);
    view.append("behind");
    view.selectAll();
    EXPECT_EQ(copied(), QString::fromStdString("before\n" + line + "\nbehind"));
}

TEST_F(ConsoleOutputViewTest, OfAVeryLongLineOnlyWhatIsOnTheScreenIsLaidOut) {
    view.append(std::string(1 << 20, 'x'));
    view.grab();
    int laidOut = 0;
    int longest = 0;
    for (QTextBlock block = view.document()->begin(); block.isValid(); block = block.next()) {
        if (block.layout()->lineCount() > 0) laidOut += block.length();
        longest = std::max(longest, block.length());
    }
    EXPECT_LE(longest, 10000);
    EXPECT_GT(laidOut, 0);
    EXPECT_LE(laidOut, 50000);
}

TEST_F(ConsoleOutputViewTest, PiecesOfALongLineEndBetweenCharacters) {
    std::string line;
    for (int number = 0; number < 20000; ++number) line += "👩\u200d🚀e\u0301";
    view.append(line);
    ASSERT_GT(view.document()->blockCount(), 1);
    for (QTextBlock block = view.document()->begin(); block.isValid(); block = block.next()) {
        const QChar first = block.text().front();
        EXPECT_TRUE(first.isHighSurrogate() || first == u'e') << block.blockNumber();
        EXPECT_NE(block.text().back(), QChar(0x200d));
    }
}

TEST_F(ConsoleOutputViewTest, ALineTellsWhenItArrived) {
    view.append("one");
    now = now + 60;
    view.append("two");
    EXPECT_EQ(view.arrivalAt(middleOf(0)), "2026-11-15 15:31:51 +0000");
    EXPECT_EQ(view.arrivalAt(middleOf(1)), "2026-11-15 15:32:51 +0000");
    EXPECT_EQ(view.arrivalAt({5, 190}), "");

    const QPoint place = middleOf(1);
    QHelpEvent help(QEvent::ToolTip, place, view.viewport()->mapToGlobal(place));
    QCoreApplication::sendEvent(view.viewport(), &help);
    EXPECT_EQ(QToolTip::text(), "2026-11-15 15:32:51 +0000");
}

TEST_F(ConsoleOutputViewTest, EveryPieceOfALongLineTellsWhenItArrived) {
    view.append(std::string(100000, 'x'));
    now = now + 60;
    view.append("two");
    const int last = view.document()->blockCount() - 1;
    EXPECT_EQ(view.arrivalAt(middleOf(last)), "2026-11-15 15:32:51 +0000");
    EXPECT_EQ(view.arrivalAt(middleOf(last) - QPoint(0, view.fontMetrics().height())), "2026-11-15 15:31:51 +0000");
}

TEST_F(ConsoleOutputViewTest, ASelectionDoesNotGrowWithTheLog) {
    appendLines(100);
    QTextCursor cursor = view.textCursor();
    cursor.movePosition(QTextCursor::End);
    cursor.movePosition(QTextCursor::StartOfBlock, QTextCursor::KeepAnchor);
    view.setTextCursor(cursor);
    ASSERT_EQ(view.textCursor().selectedText(), "line 99");
    view.append("more");
    EXPECT_EQ(view.textCursor().selectedText(), "line 99");
    EXPECT_TRUE(isLastLineVisible());

    view.selectAll();
    bar().setValue(10);
    view.append("even more");
    EXPECT_TRUE(view.textCursor().selectedText().endsWith("more"));
    EXPECT_FALSE(view.textCursor().selectedText().endsWith("even more"));
    EXPECT_EQ(bar().value(), 10);
}

TEST_F(ConsoleOutputViewTest, WordsOfOthersStayInTheirLine) {
    view.append("Message from A\nSession Online: \u202eevil");
    EXPECT_EQ(view.document()->blockCount(), 1);
    EXPECT_FALSE(view.toPlainText().contains(QChar(0x202e)));
}
