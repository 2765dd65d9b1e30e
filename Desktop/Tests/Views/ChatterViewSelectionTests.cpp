#include "ChatterSamples.h"
#include "DesktopViews/ChatterView.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QTest>
#include <QVBoxLayout>

using namespace ChatterSamples;

class ChatterViewSelectionTest : public testing::Test {
protected:
    ChatterViewSelectionTest() {
        auto* layout = new QVBoxLayout(&window);
        layout->addWidget(&view);
        layout->addWidget(&field);
        window.resize(500, 400);
        window.show();
        window.activateWindow();
        QApplication::setActiveWindow(&window);
        view.setFocus();
        QApplication::clipboard()->clear();
        view.setTranscript(transcript());
    }
    ~ChatterViewSelectionTest() override {
        view.setParent(nullptr);
        field.setParent(nullptr);
    }

    static Transcript transcript() {
        Transcript transcript;
        transcript.items = {daybreak(), text("first words here"), text("second\nwith a line"), activity("a note"),
                            text("third", at(12, 1), bob)};
        return transcript;
    }

    /// A point in the last line of a row: at the left edge of the text, or to the right of it.
    QPoint left(std::size_t row) { return {style.textLeft + 1, view.rowRect(row).bottom() - 8}; }
    QPoint right(std::size_t row) { return {view.viewport()->width() - 3, view.rowRect(row).bottom() - 8}; }

    void drag(QPoint from, QPoint to) {
        QTest::mousePress(view.viewport(), Qt::LeftButton, {}, from);
        QTest::mouseMove(view.viewport(), (from + to) / 2);
        QTest::mouseMove(view.viewport(), to);
        QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, to);
    }

    RowStyle style{QApplication::palette()};
    QWidget window;
    ChatterView view{ChatterView::Authors::emoji};
    QLineEdit field;
};

TEST_F(ChatterViewSelectionTest, ADragWithinARowSelectsItsLetters) {
    drag(left(1), right(1));
    EXPECT_EQ(view.selectedText(), QStringLiteral("first words here"));
}

TEST_F(ChatterViewSelectionTest, ADragAcrossRowsGivesALineEachAndNoNotes) {
    drag(left(1), right(4));
    EXPECT_EQ(view.selectedText(), QStringLiteral("first words here\nsecond\nwith a line\nthird"));
    drag(right(4), left(1));
    EXPECT_EQ(view.selectedText(), QStringLiteral("first words here\nsecond\nwith a line\nthird"));
}

TEST_F(ChatterViewSelectionTest, ADoubleClickSelectsAWordAndAThirdClickTheRow) {
    const QPoint point = left(1) + QPoint(3, 0);
    QTest::mouseDClick(view.viewport(), Qt::LeftButton, {}, point);
    EXPECT_EQ(view.selectedText(), QStringLiteral("first"));
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, point);
    EXPECT_EQ(view.selectedText(), QStringLiteral("first words here"));
}

TEST_F(ChatterViewSelectionTest, AClickSelectsNothingAndAShiftClickExtends) {
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, left(1));
    EXPECT_TRUE(view.selectedText().isEmpty());
    QTest::mouseClick(view.viewport(), Qt::LeftButton, Qt::ShiftModifier, right(2));
    EXPECT_EQ(view.selectedText(), QStringLiteral("first words here\nsecond\nwith a line"));
}

TEST_F(ChatterViewSelectionTest, ControlAAndControlCCopyAllTexts) {
    QTest::keyClick(&view, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(&view, Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("first words here\nsecond\nwith a line\nthird"));
}

TEST_F(ChatterViewSelectionTest, SeparatorsOfUnicodeAreCopiedAsLineEnds) {
    Transcript transcript;
    transcript.items = {text("one\u2028two\u2029three")};
    view.setTranscript(transcript);
    view.selectAll();
    EXPECT_EQ(view.selectedText(), QStringLiteral("one\ntwo\nthree"));
}

TEST_F(ChatterViewSelectionTest, WithNothingSelectedTheCurrentRowIsCopied) {
    view.copy();
    EXPECT_TRUE(QApplication::clipboard()->text().isEmpty());
    view.setCurrentRow(4);
    view.copy();
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("third"));
}

TEST_F(ChatterViewSelectionTest, WhatIsSelectedOutlivesAnAdditionAndNotItsOwnEnd) {
    drag(left(1), right(2));
    view.setTranscript(with(transcript(), text("more")));
    EXPECT_EQ(view.selectedText(), QStringLiteral("first words here\nsecond\nwith a line"));
    view.setTranscript(shortened(transcript(), 2));
    EXPECT_TRUE(view.selectedText().isEmpty());
}

TEST_F(ChatterViewSelectionTest, AnInsertionAboveMovesTheSelectionAlong) {
    drag(left(2) - QPoint(0, style.lineHeight), right(2));
    Transcript longer;
    longer.items = {daybreak(), activity("before")};
    const Transcript old = transcript();
    for (std::size_t i = 1; i < old.items.size(); ++i) longer.items.push_back(old.items[i]);
    view.setTranscript(longer);
    EXPECT_EQ(view.selectedText(), QStringLiteral("second\nwith a line"));
}

TEST_F(ChatterViewSelectionTest, AnotherWidgetsFocusClearsTheSelection) {
    ASSERT_TRUE(view.hasFocus());
    view.selectAll();
    field.setFocus(Qt::TabFocusReason);
    EXPECT_TRUE(view.selectedText().isEmpty());
}

TEST_F(ChatterViewSelectionTest, AMenuOrAnotherWindowLeavesTheSelection) {
    view.selectAll();
    for (const Qt::FocusReason reason : {Qt::PopupFocusReason, Qt::ActiveWindowFocusReason, Qt::MenuBarFocusReason}) {
        QFocusEvent event(QEvent::FocusOut, reason);
        QApplication::sendEvent(&view, &event);
        EXPECT_FALSE(view.selectedText().isEmpty());
    }
}

TEST_F(ChatterViewSelectionTest, DraggingBeyondTheEdgeScrolls) {
    view.setTranscript(varied(500));
    view.scrollToEnd();
    QScrollBar& bar = *view.verticalScrollBar();
    const int end = bar.value();
    const QPoint start(200, 60);
    QTest::mousePress(view.viewport(), Qt::LeftButton, {}, start);
    QTest::mouseMove(view.viewport(), QPoint(200, 30));
    QTest::mouseMove(view.viewport(), QPoint(200, -80));
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar.value() < end - 200; }));
    QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, QPoint(200, -80));
    EXPECT_GT(view.selectedText().count(QLatin1Char('\n')), 1);
}

TEST_F(ChatterViewSelectionTest, TabLeavesTheView) {
    QTest::keyClick(&view, Qt::Key_Tab);
    EXPECT_FALSE(view.hasFocus());
}
