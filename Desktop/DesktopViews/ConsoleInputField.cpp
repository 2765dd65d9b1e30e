#include "DesktopViews/ConsoleInputField.h"

#include "DesktopViews/ConsoleLook.h"

#include <QGuiApplication>
#include <QInputMethod>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QProxyStyle>
#include <QStyleHints>

namespace {

constexpr int insertionPointWidth = 2;

/// The desktop's style without an insertion point.
class FieldStyle : public QProxyStyle {
public:
    int pixelMetric(PixelMetric metric, const QStyleOption* option, const QWidget* widget) const override {
        return metric == PM_TextCursorWidth ? 0 : QProxyStyle::pixelMetric(metric, option, widget);
    }
};

}  // namespace

ConsoleInputField::ConsoleInputField(QWidget* parent) : QLineEdit(parent) {
    auto* style = new FieldStyle;
    style->setParent(this);
    setStyle(style);
    setFrame(false);
    setAttribute(Qt::WA_MacShowFocusRect, false);
    setAccessibleName(QStringLiteral("Command"));
    setPlaceholderText(QStringLiteral("Command"));
    applyLook();
    connect(this, &QLineEdit::cursorPositionChanged, this, [this] {
        if (hasFocus()) restartBlinking();
    });
}

bool ConsoleInputField::event(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange) applyLook();
    return QLineEdit::event(event);
}

void ConsoleInputField::keyPressEvent(QKeyEvent* event) {
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (!isReturn || (event->modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier)
        return QLineEdit::keyPressEvent(event);
    event->accept();
    if (isComposing)
        QGuiApplication::inputMethod()->commit();
    else
        Q_EMIT newlineCommand();
}

void ConsoleInputField::inputMethodEvent(QInputMethodEvent* event) {
    isComposing = !event->preeditString().isEmpty();
    QLineEdit::inputMethodEvent(event);
}

void ConsoleInputField::focusInEvent(QFocusEvent* event) {
    QLineEdit::focusInEvent(event);
    restartBlinking();
}

void ConsoleInputField::focusOutEvent(QFocusEvent* event) {
    QLineEdit::focusOutEvent(event);
    blinking.stop();
    isInsertionPointShown = false;
    update();
}

void ConsoleInputField::restartBlinking() {
    isInsertionPointShown = true;
    const int period = QGuiApplication::styleHints()->cursorFlashTime();
    if (period >= 2)
        blinking.start(period / 2, this);
    else
        blinking.stop();
    update();
}

void ConsoleInputField::timerEvent(QTimerEvent* event) {
    if (event->timerId() != blinking.timerId()) return QLineEdit::timerEvent(event);
    isInsertionPointShown = !isInsertionPointShown;
    update();
}

void ConsoleInputField::paintEvent(QPaintEvent* event) {
    QLineEdit::paintEvent(event);
    if (!isInsertionPointShown || hasSelectedText()) return;
    // `cursorRect` is wider than the insertion point: it has some room on both sides.
    const QRect around = cursorRect();
    QPainter painter(this);
    painter.fillRect(QRect(around.center().x(), around.y(), insertionPointWidth, around.height()),
                     ConsoleLook::insertionPoint);
}

void ConsoleInputField::applyLook() {
    QPalette colours = palette();
    colours.setColor(QPalette::Base, Qt::transparent);
    colours.setColor(QPalette::Text, ConsoleLook::text);
    colours.setColor(QPalette::PlaceholderText, ConsoleLook::placeholder);
    colours.setColor(QPalette::Highlight, ConsoleLook::selection);
    colours.setColor(QPalette::HighlightedText, ConsoleLook::selectedText);
    setPalette(colours);
    setFont(ConsoleLook::font());
}
