#include "DesktopViews/KeyField.h"

#include "DesktopViews/Look.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QResizeEvent>
#include <QTextDocument>
#include <QTextOption>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr int padding = 7;
constexpr double radius = 6;
constexpr int keyLength = 64;
constexpr int shortestLine = 8;

}  // namespace

KeyField::KeyField(QWidget* parent) : QPlainTextEdit(parent) {
    setReadOnly(true);
    setFrameShape(QFrame::NoFrame);
    setTabChangesFocus(true);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setWordWrapMode(QTextOption::WrapAnywhere);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    document()->setDocumentMargin(0);
    // The box has round corners, so `event` draws it, and the viewport must not fill its rectangle.
    viewport()->setAutoFillBackground(false);
    applyLook();
}

void KeyField::setKey(const QString& key) {
    if (key == toPlainText()) return;
    setPlainText(key);
    fit();
}

int KeyField::lineLength() const {
    const int room = static_cast<int>((width() - 2 * padding) / characterWidth);
    int length = keyLength;
    while (length > shortestLine && length > room) length /= 2;
    return length;
}

int KeyField::widthOfLine(int characters) const {
    return static_cast<int>(std::ceil(characters * characterWidth)) + 2 * padding + 2;
}

QSize KeyField::sizeHint() const {
    const int lines = keyLength / lineLength();
    // Round each line's height up, as the text's layout does.
    const int height = static_cast<int>(std::ceil(lines * std::ceil(QFontMetricsF(font()).lineSpacing())));
    return {widthOfLine(16), height + 2 * padding};
}

QSize KeyField::minimumSizeHint() const {
    return {static_cast<int>(std::ceil(shortestLine * characterWidth)) + 2 * padding, sizeHint().height()};
}

void KeyField::applyLook() {
    setFont(Look::monospacedFont(13));
    characterWidth = std::max(1.0, QFontMetricsF(font()).horizontalAdvance(QLatin1Char('0')));
    fit();
}

void KeyField::fit() {
    const double text = lineLength() * characterWidth;
    const int side = std::max(0, static_cast<int>(std::floor((width() - text) / 2)) - 1);
    setViewportMargins(side, padding, side, padding);
    // A hidden field is not told of its new width and keeps the old lines, so tell the text of it here.
    QResizeEvent relayout(viewport()->size(), QSize());
    QPlainTextEdit::resizeEvent(&relayout);
    // The height depends on the number of lines alone. Calling updateGeometry at every resize would never end.
    if (std::exchange(fittedLength, lineLength()) != lineLength()) updateGeometry();
}

bool KeyField::event(QEvent* event) {
    // Only painting of the frame arrives as this event; the viewport paints the text.
    if (event->type() == QEvent::Paint) {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(hasFocus() ? palette().color(QPalette::Highlight) : Look::divider(palette()));
        painter.setBrush(palette().color(QPalette::Base));
        painter.drawRoundedRect(rect().toRectF().adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
        return true;
    }
    if (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut) update();
    return QPlainTextEdit::event(event);
}

void KeyField::changeEvent(QEvent* event) {
    QPlainTextEdit::changeEvent(event);
    if (event->type() == QEvent::ApplicationFontChange) applyLook();
}

void KeyField::resizeEvent(QResizeEvent* event) {
    QPlainTextEdit::resizeEvent(event);
    fit();
}
