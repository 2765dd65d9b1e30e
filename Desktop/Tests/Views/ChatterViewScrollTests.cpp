#include "ChatterSamples.h"
#include "DesktopViews/ChatterView.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace ChatterSamples;

class ChatterViewScrollTest : public testing::Test {
protected:
    ChatterViewScrollTest() {
        view.resize(420, 300);
        view.show();
    }

    QScrollBar& bar() { return *view.verticalScrollBar(); }
    /// The distance from the lower edge of the screen to the end of the list, with the room below the last row.
    int belowTheScreen() { return bar().maximum() - bar().value(); }
    std::size_t firstRow() { return view.rowAt(0).value(); }

    ChatterView view{ChatterView::Authors::emoji};
};

TEST_F(ChatterViewScrollTest, TheFirstTranscriptIsShownAtItsEnd) {
    view.setTranscript(varied(500));
    EXPECT_GT(bar().maximum(), 1000);
    EXPECT_EQ(belowTheScreen(), 0);
    EXPECT_TRUE(view.isAtEnd());
    EXPECT_LE(view.rowRect(499).bottom(), view.viewport()->height());
}

TEST_F(ChatterViewScrollTest, ATranscriptSetBeforeTheViewIsShownStandsAtItsEndToo) {
    ChatterView hidden(ChatterView::Authors::named);
    hidden.setTranscript(varied(300));
    hidden.setTranscript(with(varied(300), text("one more")));
    hidden.resize(420, 300);
    hidden.show();
    EXPECT_EQ(hidden.verticalScrollBar()->value(), hidden.verticalScrollBar()->maximum());
    EXPECT_GT(hidden.verticalScrollBar()->maximum(), 0);
    EXPECT_LE(hidden.rowRect(300).bottom(), hidden.viewport()->height());
}

TEST_F(ChatterViewScrollTest, WithinFourPointsOfTheEndAnAdditionIsFollowed) {
    const Transcript transcript = varied(500);
    for (const int distance : {0, 3, 4}) {
        view.setTranscript({});
        view.setTranscript(transcript);
        bar().setValue(bar().maximum() - distance);
        ASSERT_EQ(belowTheScreen(), distance);
        view.setTranscript(with(transcript, text("one more")));
        EXPECT_EQ(belowTheScreen(), 0) << distance;
    }
}

TEST_F(ChatterViewScrollTest, FivePointsAboveTheEndAnAdditionMovesNothing) {
    const Transcript transcript = varied(500);
    view.setTranscript(transcript);
    bar().setValue(bar().maximum() - 5);
    EXPECT_FALSE(view.isAtEnd());
    const int value = bar().value();
    const QRect rect = view.rowRect(498);
    view.setTranscript(with(transcript, text("one more")));
    EXPECT_EQ(bar().value(), value);
    EXPECT_EQ(view.rowRect(498), rect);
    EXPECT_GT(belowTheScreen(), 5);
}

TEST_F(ChatterViewScrollTest, ManyAdditionsAreFollowedOneByOne) {
    Transcript transcript = varied(30);
    view.setTranscript(transcript);
    for (int i = 0; i < 50; ++i) {
        transcript.items.push_back(text("more " + std::to_string(i)));
        view.setTranscript(transcript);
        ASSERT_EQ(belowTheScreen(), 0);
    }
}

TEST_F(ChatterViewScrollTest, AnEditAtTheEndLeavesThePositionAlone) {
    const Transcript transcript = varied(500);
    view.setTranscript(transcript);
    const std::size_t first = firstRow();
    const QRect rect = view.rowRect(first);
    Transcript edited = shortened(transcript, 499);
    edited.items.push_back(text("another last row\nof\nmany\nlines\nthat\nare\nnot\nfollowed\nso\nfar"));
    edited.items.push_back(text("and one more"));
    view.setTranscript(edited);
    EXPECT_EQ(view.rowRect(first).top(), rect.top());
    EXPECT_FALSE(view.isAtEnd());
}

TEST_F(ChatterViewScrollTest, AnInsertionAboveLeavesInPlaceWhatIsRead) {
    Transcript transcript = varied(500);
    view.setTranscript(transcript);
    bar().setValue(bar().maximum() / 2);
    const std::size_t first = firstRow();
    const QRect rect = view.rowRect(first);
    Transcript longer;
    for (std::size_t i = 0; i < 500; ++i) {
        if (i == 20) longer.items.push_back(activity("Ann name → Bob"));
        longer.items.push_back(transcript.items[i]);
    }
    view.setTranscript(longer);
    EXPECT_EQ(view.rowRect(first + 1), rect);
}

TEST_F(ChatterViewScrollTest, ANewEmojiOfEverybodyLeavesInPlaceWhatIsRead) {
    const Transcript transcript = varied(500);
    view.setTranscript(transcript);
    bar().setValue(bar().maximum() / 3);
    const std::size_t first = firstRow();
    const QRect rect = view.rowRect(first);
    Transcript changed;
    for (const Transcript::Item& item : transcript.items) {
        Transcript::Item copy = item;
        if (auto* text = std::get_if<Transcript::Text>(&copy)) text->emoji = "🦁";
        changed.items.push_back(copy);
    }
    view.setTranscript(changed);
    EXPECT_EQ(view.rowRect(first), rect);
}

TEST_F(ChatterViewScrollTest, AShorterTranscriptScrollsNoFartherThanItMust) {
    const Transcript transcript = varied(500);
    view.setTranscript(transcript);
    bar().setValue(bar().maximum() / 2);
    const std::size_t first = firstRow();
    const QRect rect = view.rowRect(first);
    view.setTranscript(shortened(transcript, 450));
    EXPECT_EQ(view.rowRect(first), rect);
    view.setTranscript(shortened(transcript, 40));
    EXPECT_EQ(belowTheScreen(), 0);
    view.setTranscript(shortened(transcript, 2));
    EXPECT_EQ(bar().maximum(), 0);
    EXPECT_EQ(view.rowRect(0).top(), 0);
    view.setTranscript({});
    EXPECT_EQ(view.rowCount(), 0U);
    EXPECT_TRUE(view.isAtEnd());
}

TEST_F(ChatterViewScrollTest, AShortTranscriptFillsTheViewFromTheTop) {
    Transcript transcript;
    transcript.items = {daybreak(), text("one"), text("two")};
    view.setTranscript(transcript);
    EXPECT_EQ(view.rowRect(0).top(), 0);
    EXPECT_EQ(view.rowRect(1).top(), view.rowRect(0).bottom() + 1);
    EXPECT_EQ(bar().maximum(), 0);
}

TEST_F(ChatterViewScrollTest, EveryStepUpMovesWhatIsReadByThatStep) {
    view.setTranscript(varied(10000));
    for (int i = 0; i < 300; ++i) {
        const std::size_t first = firstRow();
        const int top = view.rowRect(first).top();
        const int step = 7 + i * 13 % 90;
        bar().setValue(bar().value() - step);
        ASSERT_EQ(view.rowRect(first).top(), top + step) << i;
    }
    EXPECT_LT(firstRow(), 9900U);
}

TEST_F(ChatterViewScrollTest, HomeAndEndReachTheVeryBeginningAndEnd) {
    view.setTranscript(varied(10000));
    QTest::keyClick(&view, Qt::Key_Home);
    EXPECT_EQ(bar().value(), 0);
    EXPECT_EQ(view.rowRect(0).top(), 0);
    QTest::keyClick(&view, Qt::Key_End);
    EXPECT_EQ(belowTheScreen(), 0);
    bar().triggerAction(QAbstractSlider::SliderToMinimum);
    EXPECT_EQ(view.rowRect(0).top(), 0);
    EXPECT_EQ(bar().value(), 0);
    view.scrollToEnd();
    EXPECT_TRUE(view.isAtEnd());
}

TEST_F(ChatterViewScrollTest, ArrowAndPageKeysScroll) {
    view.setTranscript(varied(1000));
    const int end = bar().value();
    QTest::keyClick(&view, Qt::Key_Up);
    EXPECT_EQ(belowTheScreen(), bar().singleStep());
    QTest::keyClick(&view, Qt::Key_Down);
    EXPECT_EQ(bar().value(), end);
    const std::size_t first = firstRow();
    const int top = view.rowRect(first).top();
    QTest::keyClick(&view, Qt::Key_PageUp);
    EXPECT_EQ(view.rowRect(first).top(), top + view.viewport()->height());
}

TEST_F(ChatterViewScrollTest, AnotherWidthKeepsTheRowThatIsRead) {
    view.setTranscript(varied(2000));
    bar().setValue(bar().maximum() / 2);
    const std::size_t first = firstRow();
    for (const int width : {300, 800, 256, 420}) {
        view.resize(width, 300);
        EXPECT_EQ(firstRow(), first) << width;
    }
}

TEST_F(ChatterViewScrollTest, AnotherSizeStaysAtTheEnd) {
    view.setTranscript(varied(2000));
    for (const QSize size : {QSize(300, 300), QSize(700, 200), QSize(500, 500), QSize(256, 192)}) {
        view.resize(size);
        EXPECT_EQ(belowTheScreen(), 0) << size.width();
        EXPECT_LE(view.rowRect(1999).bottom(), view.viewport()->height());
    }
}

TEST_F(ChatterViewScrollTest, ALargerFontMeasuresAnewAndStaysAtTheEnd) {
    view.setTranscript(varied(200));
    const int height = view.rowRect(199).height();
    const QFont usual = QApplication::font();
    QFont large = usual;
    large.setPointSizeF(usual.pointSizeF() * 2);
    QApplication::setFont(large);
    QCoreApplication::processEvents();
    EXPECT_GT(view.rowRect(199).height(), height);
    EXPECT_EQ(belowTheScreen(), 0);
    QApplication::setFont(usual);
    QCoreApplication::processEvents();
    EXPECT_EQ(view.rowRect(199).height(), height);
}

TEST_F(ChatterViewScrollTest, DraggingTheBarToAnEdgeReachesIt) {
    view.setTranscript(varied(5000));
    bar().setSliderDown(true);
    bar().setSliderPosition(bar().maximum() / 2);
    bar().setSliderPosition(0);
    EXPECT_EQ(view.rowRect(0).top(), 0);
    bar().setSliderPosition(bar().maximum());
    bar().setSliderDown(false);
    EXPECT_TRUE(view.isAtEnd());
    EXPECT_LE(view.rowRect(4999).bottom(), view.viewport()->height());
}
