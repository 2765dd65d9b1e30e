#include "DesktopViews/ConnectionView.h"
#include "DesktopViews/ConsoleInputField.h"
#include "DesktopViews/ConsoleInputView.h"
#include "DesktopViews/ConsoleLook.h"
#include "TranscriptKit/AuthorColor.h"

#include <gtest/gtest.h>

#include <QInputMethodEvent>
#include <QLabel>
#include <QTest>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

class Recorder final : public ConsoleInputViewDelegate, public SignalTarget {
public:
    void didSubmit(const std::string& text) override {
        texts.push_back(text);
        if (then) then();
    }

    std::vector<std::string> texts;
    std::function<void()> then;
};

/// Counts the key presses that its children do not take.
class Parent : public QWidget {
public:
    int keys = 0;

protected:
    void keyPressEvent(QKeyEvent*) override { ++keys; }
};

class ConsoleInputViewTest : public testing::Test {
protected:
    ConsoleInputViewTest() {
        view->setDelegate(&recorder);
        parent.resize(400, 40);
        view->resize(400, 40);
        parent.show();
    }

    ConsoleInputField& field() { return view->textField(); }
    void enter(const QString& text) {
        QTest::keyClicks(&field(), text);
        QTest::keyClick(&field(), Qt::Key_Return);
    }

    Recorder recorder;
    Parent parent;
    ConsoleInputView* view = new ConsoleInputView(&parent);
};

using Texts = std::vector<std::string>;

Rgb rgb(const QColor& color) {
    return {static_cast<std::uint8_t>(color.red()), static_cast<std::uint8_t>(color.green()),
            static_cast<std::uint8_t>(color.blue())};
}

/// Whether a pixel has this colour, or nearly: the edges of letters are smoothed.
bool hasColor(QWidget& widget, const QColor& color) {
    const QImage image = widget.grab().toImage();
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            const int distance = std::abs(pixel.red() - color.red()) + std::abs(pixel.green() - color.green()) +
                                 std::abs(pixel.blue() - color.blue());
            if (distance < 40) return true;
        }
    }
    return false;
}

}  // namespace

TEST_F(ConsoleInputViewTest, ReturnHandsOnTheTextAndEmptiesTheField) {
    enter("name Ann");
    EXPECT_EQ(recorder.texts, Texts{"name Ann"});
    EXPECT_EQ(field().text(), "");
    QTest::keyClicks(&field(), "who");
    QTest::keyClick(&field(), Qt::Key_Enter, Qt::KeypadModifier);
    EXPECT_EQ(recorder.texts, (Texts{"name Ann", "who"}));
    EXPECT_EQ(parent.keys, 0);
}

TEST_F(ConsoleInputViewTest, ReturnOnAnEmptyFieldDoesNothingAndIsSwallowed) {
    QTest::keyClick(&field(), Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{});
    EXPECT_EQ(parent.keys, 0);
}

TEST_F(ConsoleInputViewTest, BlanksAreATextToo) {
    enter("  ");
    EXPECT_EQ(recorder.texts, Texts{"  "});
}

TEST_F(ConsoleInputViewTest, WithoutADelegateTheFieldEmpties) {
    view->setDelegate(nullptr);
    enter("help");
    EXPECT_EQ(field().text(), "");
}

TEST_F(ConsoleInputViewTest, ThereIsNoHistory) {
    enter("help");
    QTest::keyClick(&field(), Qt::Key_Up);
    QTest::keyClick(&field(), Qt::Key_Down);
    QTest::keyClick(&field(), Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(field().text(), "");
}

TEST_F(ConsoleInputViewTest, PastedLineEndsBecomeBlanks) {
    field().insert("one\ntwo");
    QTest::keyClick(&field(), Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"one two"});
}

TEST_F(ConsoleInputViewTest, ReturnBelongsToAnInputMethodThatComposes) {
    QInputMethodEvent composing("かん", {});
    QCoreApplication::sendEvent(&field(), &composing);
    QTest::keyClick(&field(), Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{});
    QInputMethodEvent done;
    done.setCommitString("漢");
    QCoreApplication::sendEvent(&field(), &done);
    QTest::keyClick(&field(), Qt::Key_Return);
    EXPECT_EQ(recorder.texts, Texts{"漢"});
}

TEST_F(ConsoleInputViewTest, ADelegateMayDestroyTheInput) {
    recorder.then = [this] { delete std::exchange(view, nullptr); };
    enter("help");
    EXPECT_EQ(recorder.texts, Texts{"help"});
}

TEST_F(ConsoleInputViewTest, ThePillComesAndGoesAndTheFieldStaysEditable) {
    EXPECT_FALSE(view->isOffline());
    EXPECT_FALSE(view->connection().isVisible());
    const int wide = field().width();

    view->setOffline(true);
    EXPECT_TRUE(view->connection().isVisible());
    EXPECT_EQ(view->connection().state(), ConnectionView::State::offline);
    EXPECT_EQ(view->width() - view->connection().geometry().right() - 1, 10);
    EXPECT_LT(field().geometry().right(), view->connection().x());
    enter("help");
    EXPECT_EQ(recorder.texts, Texts{"help"});

    view->setOffline(false);
    EXPECT_FALSE(view->connection().isVisible());
    EXPECT_EQ(view->connection().state(), ConnectionView::State::normal);
    EXPECT_EQ(field().width(), wide);
}

TEST_F(ConsoleInputViewTest, ThePromptIsYellowAndTheInsertionPointOrange) {
    EXPECT_EQ(view->findChild<QLabel*>()->text(), ">");
    EXPECT_TRUE(hasColor(*view, ConsoleLook::prompt));
    EXPECT_FALSE(hasColor(*view, ConsoleLook::insertionPoint));
    QFocusEvent focus(QEvent::FocusIn);
    QCoreApplication::sendEvent(&field(), &focus);
    EXPECT_TRUE(hasColor(*view, ConsoleLook::insertionPoint));
    QFocusEvent away(QEvent::FocusOut);
    QCoreApplication::sendEvent(&field(), &away);
    EXPECT_FALSE(hasColor(*view, ConsoleLook::insertionPoint));
}

TEST_F(ConsoleInputViewTest, ASelectionIsYellowOnBrown) {
    QTest::keyClicks(&field(), "hello");
    field().selectAll();
    EXPECT_TRUE(hasColor(*view, ConsoleLook::selection));
    EXPECT_EQ(field().palette().color(QPalette::HighlightedText), ConsoleLook::selectedText);
}

TEST(ConsoleLookTest, WhatIsReadStandsOut) {
    using namespace ConsoleLook;
    const auto contrast = [](const QColor& one, const QColor& other) {
        return AuthorColor::contrast(rgb(one), rgb(other));
    };
    EXPECT_GE(contrast(text, background), 4.5);
    EXPECT_GE(contrast(text, logSelection), 4.5);
    EXPECT_GE(contrast(text, inputBackground), 4.5);
    EXPECT_GE(contrast(prompt, inputBackground), 4.5);
    EXPECT_GE(contrast(selectedText, selection), 4.5);
    EXPECT_GE(contrast(insertionPoint, inputBackground), 4.5);
    EXPECT_GE(contrast(placeholder, inputBackground), 4.5);
}
