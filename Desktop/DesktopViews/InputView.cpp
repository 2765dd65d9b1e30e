#include "DesktopViews/InputView.h"

#include "DesktopViews/ConnectionView.h"
#include "DesktopViews/Look.h"
#include "DesktopViews/Wrapping.h"
#include "QtText/QtText.h"

#include <QGuiApplication>
#include <QInputMethod>
#include <QKeyEvent>
#include <QPointer>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextLayout>

namespace {

constexpr double textSize = 14;
constexpr int insetX = 12;
constexpr int insetY = 8;
// Kept free besides the pill's width: the distances from the edge to the pill, and from the pill to the text.
constexpr int pillRoom = 30;

// An ordinary scroll bar is nearly as wide as this field is high, and would lie under the pill.
const char scrollBarStyle[] =
    "QScrollBar:vertical { width: 8px; background: transparent; border: none; margin: 2px 1px; }"
    "QScrollBar::handle:vertical { background: rgba(128, 128, 128, 160); border-radius: 3px; min-height: 12px; }"
    "QScrollBar::add-line, QScrollBar::sub-line { height: 0; }"
    "QScrollBar::add-page, QScrollBar::sub-page { background: none; }";

bool isReturn(const QKeyEvent& event) { return event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter; }

}  // namespace

InputTextView::InputTextView(QWidget* parent) : QPlainTextEdit(parent) {
    setFrameShape(QFrame::NoFrame);
    viewport()->setAutoFillBackground(false);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    verticalScrollBar()->setStyleSheet(QLatin1String(scrollBarStyle));
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
    setWordWrapMode(Wrapping::of({}));
    // Connect to this signal since it is emitted before the change is laid out.
    connect(document(), &QTextDocument::contentsChange, this, &InputTextView::fitWrapping);
    // Let Tab leave the field, or the keyboard could not.
    setTabChangesFocus(true);
    setPlaceholderText(QStringLiteral("Message"));
    setAccessibleName(QStringLiteral("Message"));
    applyFont();
    // A document has one margin for all sides: use the smaller inset here, and add the rest by viewport margins.
    document()->setDocumentMargin(insetY);
    applyMargins();
}

void InputTextView::setRightContentInset(int inset) {
    if (inset == rightInset) return;
    rightInset = inset;
    applyMargins();
}

QString InputTextView::text() const {
    // Do not use toPlainText: it turns no-break spaces into plain ones.
    QString text = document()->toRawText();
    for (QChar& character : text) {
        switch (character.unicode()) {
            case QChar::ParagraphSeparator:
            case QChar::LineSeparator: character = QLatin1Char('\n');
        }
    }
    return text;
}

bool InputTextView::event(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange) applyFont();
    return QPlainTextEdit::event(event);
}

void InputTextView::keyPressEvent(QKeyEvent* event) {
    if (!isReturn(*event)) return QPlainTextEdit::keyPressEvent(event);
    event->accept();
    if (!textCursor().block().layout()->preeditAreaText().isEmpty()) return QGuiApplication::inputMethod()->commit();
    if ((event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier) return Q_EMIT newlineCommand();
    textCursor().insertBlock();
    ensureCursorVisible();
}

void InputTextView::fitWrapping(int position, int, int added) {
    QTextOption::WrapMode mode = document()->isEmpty() ? Wrapping::of({}) : wordWrapMode();
    // Look only at long insertions: words typed letter by letter do not get long enough to be slow.
    if (added > Wrapping::longestWord) {
        for (QTextBlock block = document()->findBlock(position); block.isValid() && block.position() < position + added;
             block = block.next())
            if (Wrapping::of(block.text()) == QTextOption::WrapAnywhere) mode = QTextOption::WrapAnywhere;
    }
    if (mode != wordWrapMode()) setWordWrapMode(mode);
}

void InputTextView::applyFont() { setFont(Look::font(textSize)); }

void InputTextView::applyMargins() { setViewportMargins(insetX - insetY, 0, insetX - insetY + rightInset, 0); }

InputView::InputView(QWidget* parent)
    : QWidget(parent), _textView(new InputTextView(this)), _connection(new ConnectionView(this)) {
    _connection->hide();
    setFocusProxy(_textView);
    connect(_textView, &InputTextView::newlineCommand, this, &InputView::submit);
}

void InputView::setOffline(bool isOffline) {
    _isOffline = isOffline;
    _connection->setVisible(isOffline);
    _connection->setState(isOffline ? ConnectionView::State::offline : ConnectionView::State::normal);
    makeRoom();
}

bool InputView::event(QEvent* event) {
    // The pill's size hint has changed.
    if (event->type() == QEvent::LayoutRequest) makeRoom();
    return QWidget::event(event);
}

void InputView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    _textView->setGeometry(rect());
    _connection->place(rect());
}

void InputView::submit() {
    // The delegate may close the window.
    const QPointer<InputView> self(this);
    const std::string text = fromQt(_textView->text());
    const bool isTaken = !delegate || delegate->didSubmit(text);
    if (self && isTaken) _textView->clear();
}

void InputView::makeRoom() {
    const QSize size = _connection->sizeHint();
    const bool isNothing = size.width() == 0 && size.height() == 0;
    _textView->setRightContentInset(isNothing ? 0 : size.width() + pillRoom);
    _connection->place(rect());
}
