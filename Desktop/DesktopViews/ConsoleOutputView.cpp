#include "DesktopViews/ConsoleOutputView.h"

#include "DesktopViews/ConsoleLook.h"
#include "TranscriptKit/DisplayText.h"

#include <QDateTime>
#include <QHelpEvent>
#include <QMimeData>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QToolTip>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr int inset = 8;
constexpr int linePadding = 10;
// In characters. A block is laid out as a whole at each new width, which takes about 1 ms at this length.
constexpr qsizetype longestBlock = 8192;

const char scrollBarStyle[] =
    "QScrollBar:vertical { width: 12px; background: transparent; border: none; margin: 2px; }"
    "QScrollBar::handle:vertical { background: rgba(255, 255, 255, 110); border-radius: 4px; min-height: 24px; }"
    "QScrollBar::handle:vertical:hover { background: rgba(255, 255, 255, 160); }"
    "QScrollBar::add-line, QScrollBar::sub-line { height: 0; }"
    "QScrollBar::add-page, QScrollBar::sub-page { background: none; }";

QString described(Date date) {
    const auto seconds = static_cast<qint64>(std::floor(date.toUnix()));
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss '+0000'"));
}

/// The end of the piece that begins at `start`. It does not split a user-perceived character, except one that is
/// longer than half a piece.
qsizetype endOfPiece(const QString& line, qsizetype start) {
    qsizetype end = std::min(start + longestBlock, line.size());
    while (end < line.size() && end > start + longestBlock / 2 &&
           (line[end].isLowSurrogate() || line[end].isMark() || line[end] == QChar(0x200d) ||
            line[end - 1] == QChar(0x200d)))
        --end;
    return end;
}

}  // namespace

ConsoleOutputView::ConsoleOutputView(std::function<Date()> clock, QWidget* parent)
    : QPlainTextEdit(parent), clock(std::move(clock)) {
    setReadOnly(true);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setUndoRedoEnabled(false);
    setFrameShape(QFrame::NoFrame);
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    verticalScrollBar()->setStyleSheet(QLatin1String(scrollBarStyle));
    setTabChangesFocus(true);
    document()->setDocumentMargin(inset);
    setViewportMargins(linePadding, 0, linePadding, 0);
    setAccessibleName(QStringLiteral("Console log"));
    applyLook();
}

void ConsoleOutputView::append(std::string_view text) {
    const QString line = DisplayText::line(text);
    const Date arrived = clock();
    const bool isFollowing = isPinned();

    // A selection that ends at the end of the log would grow to take in the new line: restore it afterwards.
    QTextCursor selected = textCursor();
    const int anchor = selected.anchor();
    const int position = selected.position();
    const bool wouldGrow = selected.hasSelection() && selected.selectionEnd() == document()->characterCount() - 1;
    const int scrolled = verticalScrollBar()->value();

    insertAtEnd(line, arrived);

    if (wouldGrow) {
        selected.setPosition(anchor);
        selected.setPosition(position, QTextCursor::KeepAnchor);
        setTextCursor(selected);
        verticalScrollBar()->setValue(scrolled);
    }
    if (isFollowing) scrollToEnd();
}

void ConsoleOutputView::insertAtEnd(const QString& line, Date arrived) {
    QTextCursor end(document());
    // Begin the edit before moving the cursor: outside an edit, a move lays out the block that it reaches.
    end.beginEditBlock();
    end.movePosition(QTextCursor::End);
    qsizetype start = 0;
    bool isContinued = false;
    do {
        const qsizetype stop = endOfPiece(line, start);
        if (!blocks.empty()) end.insertBlock();
        blocks.push_back({arrived, isContinued});
        end.insertText(line.mid(start, stop - start));
        start = stop;
        isContinued = true;
    } while (start < line.size());
    end.endEditBlock();
}

bool ConsoleOutputView::isPinned() const {
    const QScrollBar* bar = verticalScrollBar();
    return bar->value() == bar->maximum();
}

void ConsoleOutputView::scrollToEnd() { verticalScrollBar()->setValue(verticalScrollBar()->maximum()); }

QString ConsoleOutputView::arrivalAt(const QPoint& position) const {
    for (QTextBlock block = firstVisibleBlock(); block.isValid(); block = block.next()) {
        const QRectF bounds = blockBoundingGeometry(block).translated(contentOffset());
        if (bounds.top() > position.y()) break;
        const auto number = static_cast<std::size_t>(block.blockNumber());
        if (bounds.bottom() > position.y() && number < blocks.size()) return described(blocks[number].arrived);
    }
    return {};
}

bool ConsoleOutputView::event(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange) applyLook();
    return QPlainTextEdit::event(event);
}

bool ConsoleOutputView::viewportEvent(QEvent* event) {
    if (event->type() != QEvent::ToolTip) return QPlainTextEdit::viewportEvent(event);
    const auto* help = static_cast<QHelpEvent*>(event);
    // The text is our own and has no mark-up. An empty text hides the tool-tip of another line.
    QToolTip::showText(help->globalPos(), arrivalAt(help->pos()), viewport());
    return true;
}

void ConsoleOutputView::resizeEvent(QResizeEvent* event) {
    const bool isFollowing = isPinned();
    QPlainTextEdit::resizeEvent(event);
    if (isFollowing) scrollToEnd();
}

void ConsoleOutputView::showEvent(QShowEvent* event) {
    // When it is first shown, QPlainTextEdit scrolls to the caret.
    const bool isFollowing = isPinned();
    QPlainTextEdit::showEvent(event);
    if (isFollowing) scrollToEnd();
}

QMimeData* ConsoleOutputView::createMimeDataFromSelection() const {
    const QTextCursor cursor = textCursor();
    const int from = cursor.selectionStart();
    const int to = cursor.selectionEnd();
    QString text;
    for (QTextBlock block = document()->findBlock(from); block.isValid() && block.position() <= to;
         block = block.next()) {
        const auto number = static_cast<std::size_t>(block.blockNumber());
        if (block.position() > from && !blocks[number].isContinued) text += QLatin1Char('\n');
        const int first = std::max(from - block.position(), 0);
        text += block.text().mid(first, to - block.position() - first);
    }
    auto* data = new QMimeData;
    data->setText(text);
    return data;
}

void ConsoleOutputView::applyLook() {
    QPalette colours = palette();
    colours.setColor(QPalette::Base, ConsoleLook::background);
    colours.setColor(QPalette::Window, ConsoleLook::background);
    colours.setColor(QPalette::Text, ConsoleLook::text);
    colours.setColor(QPalette::Highlight, ConsoleLook::logSelection);
    colours.setColor(QPalette::HighlightedText, ConsoleLook::text);
    setPalette(colours);
    // Fill the margins beside the viewport (`linePadding`) with the background too.
    setAutoFillBackground(true);
    setFont(ConsoleLook::font());
}
