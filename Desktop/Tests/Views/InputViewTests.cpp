#include "DesktopViews/ConnectionView.h"
#include "DesktopViews/InputView.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QGuiApplication>
#include <QInputMethodEvent>
#include <QMimeData>
#include <QScrollBar>
#include <QTest>

#include <memory>
#include <string>
#include <vector>

namespace {

class Recorder final : public InputViewDelegate, public SignalTarget {
public:
    bool didSubmit(const std::string& text) override {
        texts.push_back(text);
        if (then) then();
        return answer;
    }

    std::vector<std::string> texts;
    std::function<void()> then;
    bool answer = true;
};

class InputViewTest : public testing::Test {
protected:
    InputViewTest() {
        view->setDelegate(&recorder);
        view->resize(400, 40);
        view->show();
    }

    InputTextView& text() { return view->textView(); }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::keyClick(&text(), key, modifiers);
    }
    void type(const QString& words) { QTest::keyClicks(&text(), words); }
    /// Pastes words from the clipboard.
    void paste(const QString& words) {
        QGuiApplication::clipboard()->setText(words);
        text().paste();
    }
    void compose(const QString& preedit, const QString& committed = {}) {
        QInputMethodEvent event(preedit, {});
        event.setCommitString(committed);
        QCoreApplication::sendEvent(&text(), &event);
    }

    Recorder recorder;
    std::unique_ptr<InputView> view = std::make_unique<InputView>();
};

using Texts = std::vector<std::string>;

}  // namespace

TEST_F(InputViewTest, ReturnWithTextHandsItOnAndEmptiesTheField) {
    type("hello");
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"hello"});
    EXPECT_EQ(text().text(), "");
}

TEST_F(InputViewTest, EnterOfTheKeypadSubmitsToo) {
    type("hello");
    press(Qt::Key_Enter, Qt::KeypadModifier);
    EXPECT_EQ(recorder.texts, Texts{"hello"});
}

TEST_F(InputViewTest, ARefusalLeavesTheTextInPlace) {
    recorder.answer = false;
    type("hello");
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"hello"});
    EXPECT_EQ(text().text(), "hello");
}

TEST_F(InputViewTest, WithoutADelegateTheFieldEmpties) {
    view->setDelegate(nullptr);
    type("hello");
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{});
    EXPECT_EQ(text().text(), "");
}

TEST_F(InputViewTest, ADelegateThatHasGoneCountsAsNone) {
    auto gone = std::make_unique<Recorder>();
    view->setDelegate(gone.get());
    gone.reset();
    type("hello");
    press(Qt::Key_Return);
    EXPECT_EQ(text().text(), "");
}

TEST_F(InputViewTest, ReturnInAnEmptyFieldHandsOnTheEmptyText) {
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{""});
    EXPECT_EQ(text().text(), "");
}

TEST_F(InputViewTest, ReturnWithAModifierAddsALine) {
    type("one");
    press(Qt::Key_Return, Qt::ShiftModifier);
    type("two");
    press(Qt::Key_Return, Qt::ControlModifier);
    type("three");
    press(Qt::Key_Enter, Qt::AltModifier | Qt::KeypadModifier);
    EXPECT_EQ(recorder.texts, Texts{});
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"one\ntwo\nthree\n"});
}

TEST_F(InputViewTest, ReturnInTheMiddleSubmitsTheWholeText) {
    type("hello");
    press(Qt::Key_Left);
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"hello"});
}

TEST_F(InputViewTest, NothingIsTrimmed) {
    paste("  \t \n a \n\n");
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"  \t \n a \n\n"});
}

TEST_F(InputViewTest, EveryLineEndGoesOutAsNewlineAndTheRestAsItCame) {
    QString pasted = QStringLiteral("a\r\nb\nc");
    pasted += QChar(QChar::LineSeparator);
    pasted += "d";
    pasted += QChar(QChar::ParagraphSeparator);
    pasted += QStringLiteral("e");
    pasted += QChar(QChar::Nbsp);
    pasted += QChar(u'\0');
    pasted += QStringLiteral("f 😀");
    paste(pasted);
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{std::string("a\nb\nc\nd\ne\u00a0\0f 😀", 18)});
}

TEST_F(InputViewTest, PastesThePlainTextOfAPage) {
    auto* page = new QMimeData;
    page->setHtml("<b>bold</b><img src='x.png'>");
    page->setText("bold");
    QGuiApplication::clipboard()->setMimeData(page);
    text().paste();
    EXPECT_EQ(text().text(), "bold");
    EXPECT_NE(text().textCursor().charFormat().fontWeight(), static_cast<int>(QFont::Bold));
}

TEST_F(InputViewTest, WhatWasTypedCanBeUndone) {
    type("hello");
    text().undo();
    EXPECT_EQ(text().text(), "");
    text().redo();
    EXPECT_EQ(text().text(), "hello");
}

TEST_F(InputViewTest, WhatWasSubmittedDoesNotComeBackByUndo) {
    type("hello");
    press(Qt::Key_Return);
    text().undo();
    EXPECT_EQ(text().text(), "");
}

TEST_F(InputViewTest, ReturnBelongsToAnInputMethodThatComposes) {
    compose("かん");
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{});
    compose("", "漢");
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"漢"});
}

TEST_F(InputViewTest, ThePillComesAndGoesAndTheTextKeepsClearOfIt) {
    ConnectionView& pill = view->connection();
    EXPECT_FALSE(view->isOffline());
    EXPECT_FALSE(pill.isVisible());
    EXPECT_EQ(text().rightContentInset(), 0);
    const int wide = text().viewport()->width();

    view->setOffline(true);
    EXPECT_TRUE(view->isOffline());
    EXPECT_TRUE(pill.isVisible());
    EXPECT_EQ(pill.state(), ConnectionView::State::offline);
    EXPECT_EQ(text().rightContentInset(), pill.sizeHint().width() + 30);
    EXPECT_EQ(text().viewport()->width(), wide - text().rightContentInset());
    EXPECT_EQ(view->width() - pill.geometry().right() - 1, 10);
    EXPECT_FALSE(text().geometry().isNull());
    EXPECT_LT(text().viewport()->geometry().right(), pill.x());

    view->setOffline(false);
    EXPECT_FALSE(pill.isVisible());
    EXPECT_EQ(pill.state(), ConnectionView::State::normal);
    EXPECT_EQ(text().rightContentInset(), 0);
    EXPECT_EQ(text().viewport()->width(), wide);
}

TEST_F(InputViewTest, ThePillFollowsTheRightEdge) {
    view->setOffline(true);
    view->resize(600, 60);
    EXPECT_EQ(600 - view->connection().geometry().right() - 1, 10);
    EXPECT_EQ(view->connection().geometry().center().y(), 29);
}

TEST_F(InputViewTest, StaysEditableAndSubmitsWhileOffline) {
    view->setOffline(true);
    type("hello");
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"hello"});
}

TEST_F(InputViewTest, ALongerTextScrollsInsideTheHeightThatItWasGiven) {
    for (int line = 0; line < 5; ++line) {
        type("line");
        press(Qt::Key_Return, Qt::ShiftModifier);
    }
    EXPECT_EQ(view->height(), 40);
    EXPECT_EQ(text().height(), 40);
    EXPECT_GT(text().verticalScrollBar()->value(), 0);
    EXPECT_TRUE(text().viewport()->rect().intersects(text().cursorRect()));
}

TEST_F(InputViewTest, ADelegateMayDestroyTheInput) {
    recorder.then = [this] { view.reset(); };
    type("hello");
    press(Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"hello"});
}

TEST_F(InputViewTest, TheFocusGoesToTheTextAndTabLeavesIt) {
    EXPECT_EQ(view->focusProxy(), &text());
    press(Qt::Key_Tab);
    EXPECT_EQ(text().text(), "");
    EXPECT_EQ(text().accessibleName(), "Message");
}
