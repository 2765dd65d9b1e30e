#include "DesktopViews/ConsoleInputView.h"

#include "DesktopViews/ConnectionView.h"
#include "DesktopViews/ConsoleInputField.h"
#include "DesktopViews/ConsoleLook.h"
#include "QtText/QtText.h"

#include <QEvent>
#include <QLabel>
#include <QPainter>
#include <QPointer>

#include <algorithm>

namespace {

constexpr int margin = 18;  // where the log's text begins
constexpr int gap = 6;

/// Turns line ends, which a paste can bring into the field, into blanks: the field shows them as blanks too.
QString oneLine(QString text) {
    for (QChar& character : text) {
        switch (character.unicode()) {
            case '\n':
            case '\r':
            case QChar::LineSeparator:
            case QChar::ParagraphSeparator: character = QLatin1Char(' ');
        }
    }
    return text;
}

}  // namespace

ConsoleInputView::ConsoleInputView(QWidget* parent)
    : QWidget(parent),
      textPrefix(new QLabel(this)),
      _textField(new ConsoleInputField(this)),
      _connection(new ConnectionView(this)) {
    textPrefix->setTextFormat(Qt::PlainText);
    textPrefix->setText(QStringLiteral(">"));
    textPrefix->setAccessibleName(QStringLiteral("Prompt"));
    setFocusProxy(_textField);
    _connection->hide();
    connect(_textField, &ConsoleInputField::newlineCommand, this, &ConsoleInputView::submit);
    applyLook();
}

void ConsoleInputView::setOffline(bool isOffline) {
    _isOffline = isOffline;
    _connection->setVisible(isOffline);
    _connection->setState(isOffline ? ConnectionView::State::offline : ConnectionView::State::normal);
    arrange();
}

bool ConsoleInputView::event(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange) applyLook();
    if (event->type() == QEvent::LayoutRequest) arrange();
    return QWidget::event(event);
}

void ConsoleInputView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), ConsoleLook::inputBackground);
    painter.fillRect(QRect(0, 0, width(), 1), ConsoleLook::edge);
}

void ConsoleInputView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    arrange();
}

void ConsoleInputView::submit() {
    const QString text = oneLine(_textField->text());
    if (text.isEmpty()) return;
    const QPointer<ConsoleInputView> self(this);
    if (delegate) delegate->didSubmit(fromQt(text));
    if (self) _textField->setText({});
}

void ConsoleInputView::applyLook() {
    QPalette colours = textPrefix->palette();
    colours.setColor(QPalette::WindowText, ConsoleLook::prompt);
    textPrefix->setPalette(colours);
    textPrefix->setFont(ConsoleLook::font());
    arrange();
}

void ConsoleInputView::arrange() {
    const QSize pill = _connection->sizeHint();
    _connection->place(rect());
    const QSize prompt = textPrefix->sizeHint();
    textPrefix->setGeometry(margin, (height() - prompt.height()) / 2, prompt.width(), prompt.height());
    const int left = margin + prompt.width() + gap;
    // The same distances as in the input of a chat (InputView).
    const int right = pill.isEmpty() ? ConnectionView::distance : pill.width() + 30;
    const int fieldHeight = _textField->sizeHint().height();
    _textField->setGeometry(left, (height() - fieldHeight) / 2, std::max(width() - left - right, 0), fieldHeight);
}
