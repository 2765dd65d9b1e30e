#include "ChatterSamples.h"
#include "DesktopViews/ChatterView.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>

using namespace ChatterSamples;

class ChatterAccessibleTest : public testing::Test {
protected:
    ChatterAccessibleTest() {
        view.setNameOf([](const std::string& author) { return author == ann ? "Ann" : "Bob"; });
        view.setClock([] { return at(12, 0); });
        transcript.items = {daybreak(), text("hello", at(3, 5)), text("again", at(15, 6)), activity("Ann name → Eve")};
        view.setTranscript(transcript);
        view.resize(500, 300);
        view.show();
        QApplication::setActiveWindow(&view);
        view.setFocus();
    }

    QAccessibleInterface* list() { return QAccessible::queryAccessibleInterface(&view); }
    QString name(int row) { return list()->child(row)->text(QAccessible::Name); }

    Transcript transcript;
    ChatterView view{ChatterView::Authors::emoji};
};

TEST_F(ChatterAccessibleTest, ItIsAListOfRowsWithTheirWords) {
    ASSERT_NE(list(), nullptr);
    EXPECT_EQ(list()->role(), QAccessible::List);
    EXPECT_FALSE(list()->text(QAccessible::Name).isEmpty());
    ASSERT_EQ(list()->childCount(), 4);
    EXPECT_EQ(list()->child(1)->role(), QAccessible::ListItem);
    EXPECT_EQ(name(0), QStringLiteral("Today"));
    EXPECT_EQ(name(1), QStringLiteral("Ann, 3:05, hello"));
    EXPECT_EQ(name(2), QStringLiteral("Ann, 3:06, again"));
    EXPECT_EQ(name(3), QStringLiteral("Ann name → Eve"));
}

TEST_F(ChatterAccessibleTest, AuthorsWithoutANameAreAnonymous) {
    ChatterView plain(ChatterView::Authors::emoji);
    plain.setTranscript(transcript);
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&plain)->child(1)->text(QAccessible::Name),
              QStringLiteral("Anonymous, 3:05, hello"));
}

TEST_F(ChatterAccessibleTest, RowsAreFoundByPlaceAndNumber) {
    for (int row = 0; row < 4; ++row) {
        QAccessibleInterface* child = list()->child(row);
        EXPECT_EQ(list()->indexOfChild(child), row);
        EXPECT_EQ(child->parent(), list());
        EXPECT_EQ(child, list()->child(row));
        const QPoint centre = child->rect().center();
        EXPECT_EQ(list()->childAt(centre.x(), centre.y()), child);
    }
    EXPECT_EQ(list()->child(4), nullptr);
    EXPECT_EQ(list()->child(-1), nullptr);
    const QPoint below = view.viewport()->mapToGlobal(QPoint(100, 290));
    EXPECT_EQ(list()->childAt(below.x(), below.y()), nullptr);
}

TEST_F(ChatterAccessibleTest, TheCurrentRowHasTheFocus) {
    ASSERT_TRUE(view.hasFocus());
    EXPECT_FALSE(list()->child(2)->state().focused);
    view.setCurrentRow(2);
    EXPECT_TRUE(list()->child(2)->state().focused);
    EXPECT_EQ(list()->focusChild(), list()->child(2));
}

TEST_F(ChatterAccessibleTest, RowsFarAwayAreOffTheScreen) {
    view.setTranscript(varied(1000));
    view.scrollToEnd();
    EXPECT_TRUE(list()->child(3)->state().offscreen);
    EXPECT_FALSE(list()->child(999)->state().offscreen);
    EXPECT_LT(list()->child(3)->rect().top(), list()->child(4)->rect().top());
}

TEST_F(ChatterAccessibleTest, ARowThatIsGoneIsInvalid) {
    QAccessibleInterface* last = list()->child(3);
    view.setTranscript(shortened(transcript, 2));
    EXPECT_FALSE(last->isValid());
    EXPECT_EQ(list()->childCount(), 2);
    EXPECT_EQ(list()->child(3), nullptr);
}

TEST_F(ChatterAccessibleTest, PressingARowOpensItsLink) {
    QStringList opened;
    view.setOpenLink([&opened](const QUrl& url) { opened.append(url.toString()); });
    view.setTranscript(with(transcript, text("see https://example.org")));
    auto* actions = list()->child(4)->actionInterface();
    ASSERT_NE(actions, nullptr);
    actions->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_EQ(opened, QStringList{QStringLiteral("https://example.org")});
}
