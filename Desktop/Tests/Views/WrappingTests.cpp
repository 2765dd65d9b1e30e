#include "DesktopViews/InputView.h"
#include "DesktopViews/RowLayout.h"
#include "DesktopViews/RowStyle.h"
#include "DesktopViews/Wrapping.h"

#include <QApplication>
#include <QClipboard>
#include <QTextCursor>

#include <gtest/gtest.h>

namespace {

constexpr auto betweenWords = QTextOption::WrapAtWordBoundaryOrAnywhere;
const QString longest(Wrapping::longestWord, u'x');

TEST(WrappingTest, OnlyATextWithAnEndlessWordIsBrokenAnywhere) {
    EXPECT_EQ(Wrapping::of(QString()), betweenWords);
    EXPECT_EQ(Wrapping::of(longest + u' ' + longest + u'\n' + longest), betweenWords);
    EXPECT_EQ(Wrapping::of("a " + longest + "x b"), QTextOption::WrapAnywhere);
    EXPECT_EQ(Wrapping::of(QString(5000, QChar(0x6F22))), betweenWords);
}

TEST(WrappingTest, AnEndlessWordOfARowBeginsBesideTheWordBefore) {
    const RowStyle style{QApplication::palette()};
    const auto heightOf = [&](const QString& text) {
        RowContent content;
        content.text = text;
        return RowLayout(content, style, 400).height();
    };
    EXPECT_EQ(heightOf("a " + longest), heightOf(longest) + style.lineHeight);
    EXPECT_EQ(heightOf("a " + longest + u'x'), heightOf(longest + "xxx"));
}

TEST(WrappingTest, TheInputBreaksAnywhereWhileItHoldsAnEndlessWord) {
    InputTextView view;
    EXPECT_EQ(view.wordWrapMode(), betweenWords);
    QApplication::clipboard()->setText(longest + u'x');
    view.paste();
    EXPECT_EQ(view.wordWrapMode(), QTextOption::WrapAnywhere);
    EXPECT_EQ(view.text(), longest + u'x');
    view.clear();
    EXPECT_EQ(view.wordWrapMode(), betweenWords);
    QTextCursor(view.document()).insertText("a\n" + longest + u'x');
    EXPECT_EQ(view.wordWrapMode(), QTextOption::WrapAnywhere);
    view.undo();
    EXPECT_EQ(view.text(), QString());
    EXPECT_EQ(view.wordWrapMode(), betweenWords);
    QTextCursor(view.document()).insertText(longest);
    EXPECT_EQ(view.wordWrapMode(), betweenWords);
}

}  // namespace
