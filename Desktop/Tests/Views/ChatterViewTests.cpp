#include "ChatterSamples.h"
#include "DesktopViews/ChatterView.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QHelpEvent>
#include <QMenu>
#include <QTest>
#include <QToolTip>

using namespace ChatterSamples;

class ChatterViewTest : public testing::Test {
protected:
    ChatterViewTest() {
        view.setOpenLink([this](const QUrl& url) { opened.push_back(url.toString()); });
        view.setClock([this] { return now; });
        view.resize(500, 300);
        view.show();
        QApplication::setActiveWindow(&view);
        view.setFocus();
    }

    void show(std::initializer_list<Transcript::Item> items) {
        Transcript transcript;
        transcript.items = items;
        view.setTranscript(transcript);
    }
    QPoint onText(std::size_t row, int right = 20) { return {style.textLeft + right, view.rowRect(row).bottom() - 8}; }
    QMenu* menuAt(QPoint point, QContextMenuEvent::Reason reason = QContextMenuEvent::Mouse) {
        QContextMenuEvent event(reason, point, view.viewport()->mapToGlobal(point));
        QApplication::sendEvent(view.viewport(), &event);
        return view.findChild<QMenu*>();
    }
    static QStringList titles(const QMenu* menu) {
        QStringList titles;
        for (const QAction* action : menu->actions())
            if (!action->isSeparator()) titles.append(action->text());
        return titles;
    }
    static QAction* action(const QMenu* menu, const QString& title) {
        for (QAction* action : menu->actions())
            if (action->text() == title) return action;
        return nullptr;
    }
    int darkPixels(std::size_t row) {
        const QImage image = view.grab(view.rowRect(row)).toImage();
        int count = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x) count += qGray(image.pixel(x, y)) < 128 ? 1 : 0;
        return count;
    }

    RowStyle style{QApplication::palette()};
    Date now = at(12, 0);
    QStringList opened;
    ChatterView view{ChatterView::Authors::emoji};
};

TEST_F(ChatterViewTest, AClickOnALinkOpensIt) {
    show({text("https://example.org/page and words")});
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, onText(0));
    EXPECT_EQ(opened, QStringList{QStringLiteral("https://example.org/page")});
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, onText(0, 350));
    EXPECT_EQ(opened.size(), 1);
}

TEST_F(ChatterViewTest, ADragOverALinkSelectsInstead) {
    show({text("https://example.org/page and words")});
    QTest::mousePress(view.viewport(), Qt::LeftButton, {}, onText(0, 1));
    QTest::mouseMove(view.viewport(), onText(0, 30));
    QTest::mouseMove(view.viewport(), onText(0, 60));
    QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, onText(0, 60));
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_TRUE(view.selectedText().startsWith(QStringLiteral("http")));
}

TEST_F(ChatterViewTest, OtherSchemesAreNoLinks) {
    show({text("javascript:alert(1) file:///etc/passwd vimble:x")});
    for (int x = 2; x < 350; x += 8) QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, onText(0, x));
    EXPECT_TRUE(opened.isEmpty());
}

TEST_F(ChatterViewTest, ThePointerTellsLinksAndText) {
    show({text("https://example.org/page and words")});
    QTest::mouseMove(view.viewport(), onText(0));
    EXPECT_EQ(view.viewport()->cursor().shape(), Qt::PointingHandCursor);
    QTest::mouseMove(view.viewport(), onText(0, 200));
    EXPECT_EQ(view.viewport()->cursor().shape(), Qt::IBeamCursor);
    QTest::mouseMove(view.viewport(), QPoint(300, 200));
    EXPECT_EQ(view.viewport()->cursor().shape(), Qt::ArrowCursor);
}

TEST_F(ChatterViewTest, TheMenuOfALinkCopiesAndOpensIt) {
    show({text("https://example.org/page and words")});
    QMenu* menu = menuAt(onText(0));
    ASSERT_NE(menu, nullptr);
    EXPECT_EQ(titles(menu), QStringList({QStringLiteral("Copy"), QStringLiteral("Copy Link"),
                                         QStringLiteral("Open Link"), QStringLiteral("Select All")}));
    EXPECT_FALSE(action(menu, QStringLiteral("Copy"))->isEnabled());
    action(menu, QStringLiteral("Copy Link"))->trigger();
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("https://example.org/page"));
    action(menu, QStringLiteral("Open Link"))->trigger();
    EXPECT_EQ(opened.size(), 1);
    menu->close();
}

TEST_F(ChatterViewTest, TheMenuElsewhereHasNoLink) {
    show({text("words alone")});
    QMenu* menu = menuAt(onText(0));
    ASSERT_NE(menu, nullptr);
    EXPECT_EQ(titles(menu), QStringList({QStringLiteral("Copy"), QStringLiteral("Select All")}));
    action(menu, QStringLiteral("Select All"))->trigger();
    EXPECT_EQ(view.selectedText(), QStringLiteral("words alone"));
    menu->close();
}

TEST_F(ChatterViewTest, TheKeyboardMovesThroughTheRowsAndOpensTheirLink) {
    show({text("https://example.org/page"), text("words")});
    EXPECT_EQ(view.currentRow(), std::nullopt);
    QTest::keyClick(&view, Qt::Key_Up, Qt::ControlModifier);
    EXPECT_EQ(view.currentRow(), 1U);
    QTest::keyClick(&view, Qt::Key_Return);
    EXPECT_TRUE(opened.isEmpty());
    QTest::keyClick(&view, Qt::Key_Up, Qt::ControlModifier);
    QTest::keyClick(&view, Qt::Key_Up, Qt::ControlModifier);
    EXPECT_EQ(view.currentRow(), 0U);
    QTest::keyClick(&view, Qt::Key_Return);
    EXPECT_EQ(opened.size(), 1);
    QTest::keyClick(&view, Qt::Key_Down, Qt::ControlModifier);
    EXPECT_EQ(view.currentRow(), 1U);
}

TEST_F(ChatterViewTest, ReturnOnSeveralLinksAsksWhich) {
    show({text("https://example.org/one?a=1&b=2 and https://example.org/two")});
    view.setCurrentRow(0);
    QTest::keyClick(&view, Qt::Key_Return);
    EXPECT_TRUE(opened.isEmpty());
    auto* menu = view.findChild<QMenu*>();
    ASSERT_NE(menu, nullptr);
    ASSERT_EQ(menu->actions().size(), 2);
    EXPECT_EQ(menu->actions()[0]->text(), QStringLiteral("https://example.org/one?a=1&&b=2"));
    menu->actions()[1]->trigger();
    EXPECT_EQ(opened, QStringList{QStringLiteral("https://example.org/two")});
    menu->close();
}

TEST_F(ChatterViewTest, TheCurrentRowIsBroughtOntoTheScreenAndFollowsChanges) {
    const Transcript transcript = varied(1000);
    view.setTranscript(transcript);
    view.setCurrentRow(300);
    EXPECT_GE(view.rowRect(300).top(), 0);
    EXPECT_LE(view.rowRect(300).top(), view.viewport()->height());
    for (int i = 0; i < 40; ++i) {
        QTest::keyClick(&view, Qt::Key_Down, Qt::ControlModifier);
        ASSERT_LT(view.rowRect(*view.currentRow()).top(), view.viewport()->height());
        ASSERT_GE(view.rowRect(*view.currentRow()).top(), 0);
    }
    EXPECT_EQ(view.currentRow(), 340U);
    view.setTranscript(shortened(transcript, 10));
    EXPECT_EQ(view.currentRow(), std::nullopt);
}

TEST_F(ChatterViewTest, TheToolTipOfAMessageIsItsAuthorsKeyAsPlainText) {
    show({activity("a note"), Transcript::Text{"words", at(12, 0), "🦊", ann, "<b>" + ann + "</b>"}});
    const auto ask = [this](std::size_t row) {
        QHelpEvent event(QEvent::ToolTip, onText(row), view.viewport()->mapToGlobal(onText(row)));
        QApplication::sendEvent(view.viewport(), &event);
        return event.isAccepted();
    };
    EXPECT_TRUE(ask(1));
    EXPECT_TRUE(QToolTip::text().contains(QStringLiteral("&lt;b&gt;")) || !Qt::mightBeRichText(QToolTip::text()));
    EXPECT_TRUE(QToolTip::text().contains(QString::fromStdString(ann)));
    EXPECT_FALSE(ask(0));
}

TEST_F(ChatterViewTest, HeadingsChangeAtMidnight) {
    show({daybreak(QDate(2026, 11, 15)), text("words")});
    EXPECT_EQ(view.spokenRow(0), QStringLiteral("Today"));
    now = at(0, 1, QDate(2026, 11, 16));
    view.grab();
    EXPECT_NE(view.spokenRow(0), QStringLiteral("Today"));
}

TEST_F(ChatterViewTest, NamedRowsSayTheNameAndAskAgainWhenItChanges) {
    ChatterView named(ChatterView::Authors::named);
    std::string name = "Ann";
    named.setNameOf([&name](const std::string&) { return name; });
    named.resize(500, 300);
    Transcript transcript;
    transcript.items = {text("words"), text("more words")};
    named.setTranscript(transcript);
    named.show();
    EXPECT_GT(named.rowRect(0).height(), named.rowRect(1).height() + style.nameHeight - 1);
    const QImage before = named.grab().toImage();
    name = "Somebody else";
    named.namesChanged();
    EXPECT_NE(named.grab().toImage(), before);
    EXPECT_EQ(named.spokenRow(1), QStringLiteral("Somebody else, 12:00, more words"));
}

TEST_F(ChatterViewTest, TimeAndEmojiStandAtTheFirstRowOfABlockOnly) {
    show({text("a", at(12, 0)), text("a", at(12, 4)), text("a", at(12, 9)), text("a", at(12, 10), bob)});
    const auto inkLeftOf = [this](std::size_t row, int left, int right) {
        const QRect rect = view.rowRect(row);
        const QImage image = view.grab(QRect(left, rect.top(), right - left, rect.height())).toImage();
        const QRgb paper = view.palette().color(QPalette::Base).rgb();
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (image.pixel(x, y) != paper) return true;
        return false;
    };
    const bool time[] = {true, false, true, false};
    const bool emoji[] = {true, false, true, true};
    for (std::size_t row = 0; row < 4; ++row) {
        EXPECT_EQ(inkLeftOf(row, 0, style.timeRight), time[row]) << row;
        EXPECT_EQ(inkLeftOf(row, style.emojiLeft, style.textLeft - 2), emoji[row]) << row;
    }
}

TEST_F(ChatterViewTest, ADarkPaletteTurnsTheColours) {
    show({text("some words to be seen")});
    const int onLight = darkPixels(0);
    QPalette dark;
    dark.setColor(QPalette::Base, Qt::black);
    dark.setColor(QPalette::Text, Qt::white);
    view.setPalette(dark);
    EXPECT_GT(onLight, 20);
    EXPECT_GT(darkPixels(0), 10 * onLight);
    const QImage image = view.grab(view.rowRect(0)).toImage();
    int light = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) light += qGray(image.pixel(x, y)) > 200 ? 1 : 0;
    EXPECT_GT(light, 20);
}

TEST_F(ChatterViewTest, AnEnormousTextIsShownByItsBeginningAndCopiedWhole) {
    const std::string words(200'000, 'x');
    show({text(words)});
    view.grab();
    view.selectAll();
    EXPECT_EQ(view.selectedText().size(), 200'000);
}
