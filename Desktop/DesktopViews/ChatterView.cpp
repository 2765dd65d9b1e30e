#include "DesktopViews/ChatterView.h"

#include "DesktopViews/ChatterAccessible.h"
#include "DesktopViews/Look.h"
#include "DesktopViews/TranscriptChange.h"
#include "TranscriptKit/Links.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDateTime>
#include <QDesktopServices>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QToolTip>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

constexpr int dragScrollMs = 30;
// Look at the clock at least once an hour, since it may have been set, or the machine may have slept.
constexpr Seconds longestWait = 3600;
// Announce only the last rows to a screen reader, so that setting a long transcript stays cheap.
constexpr std::size_t mostAnnounced = 8;
constexpr int mostRounds = 4;
constexpr int longestTitle = 60;  // of a link in a menu, in average characters

Date systemTime() { return Date::fromUnix(static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000); }

QString plainToolTip(const QString& text) { return Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text) : text; }

bool isTakenByMenus(Qt::FocusReason reason) {
    return reason == Qt::ActiveWindowFocusReason || reason == Qt::PopupFocusReason || reason == Qt::MenuBarFocusReason;
}

}  // namespace

ChatterView::ChatterView(Authors authors, QWidget* parent)
    : QAbstractScrollArea(parent),
      rows(_transcript, authors == Authors::named, palette()),
      rowWindow([this](std::size_t row) { return rows.estimate(row); },
                [this](std::size_t row) { return rows.layout(row).height(); }),
      openLink([](const QUrl& url) { QDesktopServices::openUrl(url); }),
      clock(systemTime) {
    ChatterAccessible::install();
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(tr("Messages"));
    viewport()->setMouseTracking(true);
    viewport()->setBackgroundRole(QPalette::Base);
    viewport()->setAutoFillBackground(true);
    verticalScrollBar()->setSingleStep(rows.style().lineHeight);
    connect(verticalScrollBar(), &QScrollBar::actionTriggered, this, [this](int action) {
        // Go there exactly: a place computed from estimated heights could miss the beginning or the end.
        if (action == QAbstractSlider::SliderToMinimum) moveTo([this] { rowWindow.goToStart(); });
        if (action == QAbstractSlider::SliderToMaximum) moveTo([this] { rowWindow.goToEnd(); });
    });
}

ChatterView::~ChatterView() = default;

void ChatterView::setTranscript(Transcript transcript) {
    const TranscriptChange change(_transcript, transcript);
    if (change.isNothing()) {
        _transcript = std::move(transcript);
        return;
    }
    const std::size_t oldCount = rowCount();
    const bool wasPinned = oldCount == 0 || isAtEnd();
    _transcript = std::move(transcript);
    if (change.isAppend()) {
        rowWindow.resize(rowCount(), oldCount);
        if (wasPinned)
            rowWindow.goToEnd();
        else
            rowWindow.holdFirstRow();
    } else {
        const auto newRow = [&change](std::size_t row) { return change.newRow(row); };
        rowWindow.holdFirstRow();
        for (const RowWindow::VisibleRow& visible : rowWindow.rows()) {
            const std::optional<std::size_t> row = newRow(visible.row);
            if (!row) continue;
            rowWindow.goTo(*row, visible.y);
            break;
        }
        selection.renumber(newRow);
        if (_currentRow) _currentRow = newRow(*_currentRow);
        rows.forget(change.sameAtBeginning());
        rowWindow.resize(rowCount(), change.sameAtBeginning());
    }
    settleWhenShown();
    announce(change.isAppend() ? oldCount : rowCount());
}

void ChatterView::setNameOf(std::function<std::string(const std::string&)> nameOf) {
    rows.setNameOf(std::move(nameOf));
    viewport()->update();
}

void ChatterView::namesChanged() {
    rows.forget();
    viewport()->update();
}

void ChatterView::setOpenLink(std::function<void(const QUrl&)> openLink) { this->openLink = std::move(openLink); }

void ChatterView::setClock(std::function<Date()> clock) {
    this->clock = std::move(clock);
    checkToday();
}

bool ChatterView::isAtEnd() const { return rowWindow.isAtEnd(); }

void ChatterView::scrollToEnd() {
    moveTo([this] { rowWindow.goToEnd(); });
}

QRect ChatterView::rowRect(std::size_t row) const {
    const RowWindow::VisibleRow place = rowWindow.locate(row);
    return {0, place.y, viewport()->width(), place.height};
}

std::optional<std::size_t> ChatterView::rowAt(int y) const {
    for (const RowWindow::VisibleRow& visible : rowWindow.rows())
        if (y >= visible.y && y < visible.y + visible.height) return visible.row;
    return std::nullopt;
}

void ChatterView::setCurrentRow(std::size_t row) {
    if (row >= rowCount()) return;
    _currentRow = row;
    const int page = viewport()->height();
    const QRect rect = rowRect(row);
    if (rect.top() < 0 || (rect.height() > page && rect.top() > 0)) {
        moveTo([this, row] { rowWindow.goTo(row, 0); });
    } else if (rect.bottom() >= page) {
        moveTo([this, row, page] { rowWindow.goTo(row, std::max(0, page - rows.layout(row).height())); });
    }
    viewport()->update();
    if (QAccessible::isActive() && hasFocus()) {
        QAccessibleEvent event(this, QAccessible::Focus);
        event.setChild(static_cast<int>(row));
        QAccessible::updateAccessibility(&event);
    }
}

void ChatterView::openRow(std::size_t row) {
    if (row >= rowCount()) return;
    const std::vector<Links::Link> links = rows.layout(row).links();
    if (links.size() == 1) return open(links.front().url);
    if (links.empty()) return;
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    for (const Links::Link& link : links) {
        QString title = menu->fontMetrics().elidedText(link.url.toDisplayString(), Qt::ElideMiddle,
                                                       menu->fontMetrics().averageCharWidth() * longestTitle);
        title.replace(QLatin1Char('&'), QStringLiteral("&&"));
        connect(menu->addAction(title), &QAction::triggered, this, [this, url = link.url] { open(url); });
    }
    menu->popup(viewport()->mapToGlobal(rowRect(row).center()));
}

QString ChatterView::selectedText() const {
    QStringList texts;
    if (selection.isEmpty()) return {};
    for (std::size_t row = selection.begin().row; row <= selection.end().row && row < rowCount(); ++row) {
        const auto [begin, end] = selection.inRow(row);
        if (begin >= end || !rows.isText(row)) continue;
        const QString text = rows.text(row);
        texts.append(text.mid(begin, std::min<qsizetype>(end, text.size()) - begin));
    }
    QString all = texts.join(QLatin1Char('\n'));
    all.replace(QChar::LineSeparator, QLatin1Char('\n')).replace(QChar::ParagraphSeparator, QLatin1Char('\n'));
    return all;
}

void ChatterView::copy() {
    QString text = selectedText();
    if (text.isEmpty() && _currentRow && rows.isText(*_currentRow)) text = rows.text(*_currentRow);
    if (!text.isEmpty()) QApplication::clipboard()->setText(text);
}

void ChatterView::selectAll() {
    if (rowCount() == 0) return;
    selection.start({.begin = {}, .end = {.row = rowCount() - 1, .column = TextSpan::rowEnd}});
    viewport()->update();
}

bool ChatterView::event(QEvent* event) {
    if (event->type() == QEvent::ShortcutOverride) {
        // While the view has the keyboard focus, take these keys from the menus that also use them.
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->matches(QKeySequence::Copy) || key->matches(QKeySequence::SelectAll)) {
            key->accept();
            return true;
        }
    }
    return QAbstractScrollArea::event(event);
}

bool ChatterView::viewportEvent(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const std::optional<std::size_t> row = rowAt(help->pos().y());
        const QString text = row ? rows.toolTip(*row) : QString();
        if (text.isEmpty()) {
            QToolTip::hideText();
            event->ignore();
        } else {
            QToolTip::showText(help->globalPos(), plainToolTip(text), viewport(), rowRect(*row));
        }
        return true;
    }
    return QAbstractScrollArea::viewportEvent(event);
}

void ChatterView::changeEvent(QEvent* event) {
    QAbstractScrollArea::changeEvent(event);
    switch (static_cast<int>(event->type())) {
        case QEvent::PaletteChange: restyle(true); return;
        case QEvent::ActivationChange: viewport()->update(); return;
        case QEvent::FontChange:
        case QEvent::ApplicationFontChange:
        case QEvent::StyleChange:
        case QEvent::LocaleChange:
        case QEvent::LanguageChange: restyle(false); return;
        default: return;
    }
}

void ChatterView::showEvent(QShowEvent* event) {
    QAbstractScrollArea::showEvent(event);
    checkToday();
    settle();
}

void ChatterView::resizeEvent(QResizeEvent* event) {
    QAbstractScrollArea::resizeEvent(event);
    settleWhenShown();
}

void ChatterView::paintEvent(QPaintEvent* event) {
    checkToday();
    // A view that was never shown, and so not settled, can be painted too (`QWidget::grab`).
    if (isUnsettled || shownWidth != viewport()->width()) settle();
    QPainter painter(viewport());
    const bool isActive = isActiveWindow();
    const QRect dirty = event->rect();
    for (const RowWindow::VisibleRow& visible : rowWindow.rows()) {
        if (visible.y + visible.height <= dirty.top() || visible.y > dirty.bottom()) continue;
        rows.layout(visible.row)
            .paint(painter, rows.style(), QPointF(0, visible.y), dirty, selection.inRow(visible.row), isActive);
        if (_currentRow == visible.row && hasFocus()) {
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(QPen(palette().color(QPalette::Highlight), 1.5));
            painter.setBrush(Qt::NoBrush);
            painter.drawRoundedRect(QRectF(3, visible.y + 1, viewport()->width() - 6, visible.height - 2), 4, 4);
            painter.setRenderHint(QPainter::Antialiasing, false);
        }
    }
}

void ChatterView::scrollContentsBy(int dx, int dy) {
    Q_UNUSED(dx);
    Q_UNUSED(dy);
    if (isSettling) return;
    QScrollBar* bar = verticalScrollBar();
    if (bar->isSliderDown() && bar->value() == bar->maximum())
        rowWindow.goToEnd();
    else if (bar->isSliderDown() && bar->value() == bar->minimum())
        rowWindow.goToStart();
    else
        rowWindow.scrollBy(bar->value() - rowWindow.place());
    settleWhenShown();
}

void ChatterView::settle() {
    if (isSettling) return;
    isSettling = true;
    for (int round = 0; round < mostRounds; ++round) {
        // Setting the range can show or hide the scroll bar, which changes the width: then do another round.
        const QSize size = viewport()->size();
        if (shownWidth != size.width()) {
            shownWidth = size.width();
            rowWindow.forgetHeights();
            rows.setWidth(shownWidth);
        }
        rowWindow.setPage(size.height());
        rowWindow.setMargin(rows.style().dayPadding);
        rowWindow.settle();
        constexpr std::int64_t most = std::numeric_limits<int>::max() / 2;
        QScrollBar* bar = verticalScrollBar();
        bar->setPageStep(size.height());
        bar->setRange(0, static_cast<int>(std::min(most, rowWindow.lastPlace())));
        bar->setValue(static_cast<int>(std::min(most, rowWindow.place())));
        if (viewport()->size() == size) break;
    }
    isSettling = false;
    isUnsettled = false;
    viewport()->update();
}

void ChatterView::settleWhenShown() {
    // Before the view is shown, its size and fonts are not final.
    isUnsettled = true;
    if (isVisible()) settle();
}

void ChatterView::restyle(bool isOnlyColors) {
    rows.setStyle(palette());
    verticalScrollBar()->setSingleStep(rows.style().lineHeight);
    if (!isOnlyColors) {
        rowWindow.forgetHeights();
        settleWhenShown();
    }
    viewport()->update();
}

void ChatterView::checkToday() {
    const Date now = clock();
    rows.setToday(Day::today(now));
    if (midnight.isActive()) return;
    const QDateTime local = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(now.toUnix() * 1000));
    const double left = static_cast<double>(local.msecsTo(local.date().addDays(1).startOfDay())) / 1000 + 0.1;
    midnight.start(static_cast<int>(std::clamp(left, 1.0, longestWait) * 1000), Qt::VeryCoarseTimer, this);
}

void ChatterView::moveTo(const std::function<void()>& wish) {
    wish();
    settleWhenShown();
}

void ChatterView::moveCurrentRow(int step) {
    if (rowCount() == 0 || rowWindow.rows().empty()) return;
    if (!_currentRow) return setCurrentRow(step < 0 ? rowWindow.rows().back().row : rowWindow.rows().front().row);
    if (step < 0 && *_currentRow > 0) setCurrentRow(*_currentRow - 1);
    if (step > 0) setCurrentRow(*_currentRow + 1);
}

void ChatterView::timerEvent(QTimerEvent* event) {
    if (event->timerId() == midnight.timerId()) {
        midnight.stop();
        checkToday();
        viewport()->update();
        return;
    }
    if (event->timerId() == dragScroll.timerId()) {
        const int beyond = pointer.y() < 0 ? pointer.y() : std::max(0, pointer.y() - viewport()->height() + 1);
        if (beyond == 0) return dragScroll.stop();
        // Scroll the faster, the farther the pointer is beyond the edge.
        const int step = beyond / 2 + (beyond < 0 ? -2 : 2);
        moveTo([this, step] { rowWindow.scrollBy(step); });
        extendSelection(pointer);
        return;
    }
    QAbstractScrollArea::timerEvent(event);
}

TextPosition ChatterView::positionAt(QPoint point) {
    const std::vector<RowWindow::VisibleRow>& visible = rowWindow.rows();
    if (visible.empty()) return {};
    const RowWindow::VisibleRow& last = visible.back();
    if (point.y() >= last.y + last.height) return {.row = last.row, .column = TextSpan::rowEnd};
    const RowWindow::VisibleRow* place = &visible.front();
    for (const RowWindow::VisibleRow& row : visible)
        if (row.y <= point.y()) place = &row;
    return {.row = place->row, .column = rows.layout(place->row).positionAt(point - QPoint(0, place->y))};
}

TextSpan ChatterView::spanAt(QPoint point) {
    const TextPosition position = positionAt(point);
    switch (unit) {
        case Unit::position: break;
        case Unit::word: {
            if (rowCount() == 0 || position.column == TextSpan::rowEnd) break;
            const auto [begin, end] = rows.layout(position.row).wordAt(position.column);
            return {.begin = {position.row, begin}, .end = {position.row, end}};
        }
        case Unit::row: return {.begin = {position.row, 0}, .end = {position.row, TextSpan::rowEnd}};
    }
    return {.begin = position, .end = position};
}

const Links::Link* ChatterView::linkAt(QPoint point) {
    const std::optional<std::size_t> row = rowAt(point.y());
    return row ? rows.layout(*row).linkAt(point - QPoint(0, rowWindow.find(*row)->y)) : nullptr;
}

void ChatterView::startSelection(QPoint point, Unit unit, bool isExtended) {
    this->unit = unit;
    isSelecting = true;
    if (isExtended)
        selection.extend(spanAt(point));
    else
        selection.start(spanAt(point));
    viewport()->update();
}

void ChatterView::extendSelection(QPoint point) {
    selection.extend(spanAt(point));
    viewport()->update();
}

void ChatterView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    const QPoint point = event->position().toPoint();
    const bool isThird = sinceDoubleClick.isValid() &&
                         sinceDoubleClick.elapsed() < QApplication::doubleClickInterval() &&
                         (point - pressed).manhattanLength() < QApplication::startDragDistance();
    sinceDoubleClick.invalidate();
    pressed = point;
    const Links::Link* link = linkAt(point);
    pressedLink = link != nullptr && !isThird ? link->url : QUrl();
    startSelection(point, isThird ? Unit::row : Unit::position, event->modifiers().testFlag(Qt::ShiftModifier));
}

void ChatterView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    pressed = event->position().toPoint();
    pressedLink.clear();
    sinceDoubleClick.start();
    startSelection(pressed, Unit::word, false);
}

void ChatterView::mouseMoveEvent(QMouseEvent* event) {
    pointer = event->position().toPoint();
    if (!isSelecting) return showPointer(pointer);
    if ((pointer - pressed).manhattanLength() < QApplication::startDragDistance() && !pressedLink.isEmpty()) return;
    pressedLink.clear();
    extendSelection(pointer);
    if (!viewport()->rect().contains(QPoint(0, pointer.y())) && !dragScroll.isActive())
        dragScroll.start(dragScrollMs, this);
}

void ChatterView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !isSelecting) return;
    isSelecting = false;
    dragScroll.stop();
    const QUrl url = std::exchange(pressedLink, QUrl());
    const Links::Link* link = linkAt(event->position().toPoint());
    if (selection.isEmpty() && !url.isEmpty() && link != nullptr && link->url == url) open(url);
    QClipboard* clipboard = QApplication::clipboard();
    if (!selection.isEmpty() && clipboard->supportsSelection()) {
        const QString text = selectedText();
        if (!text.isEmpty()) clipboard->setText(text, QClipboard::Selection);
    }
}

void ChatterView::showPointer(QPoint point) {
    const std::optional<std::size_t> row = rowAt(point.y());
    if (row && linkAt(point) != nullptr)
        viewport()->setCursor(Qt::PointingHandCursor);
    else if (row && rows.layout(*row).isOverText(point - QPoint(0, rowWindow.find(*row)->y)))
        viewport()->setCursor(Qt::IBeamCursor);
    else
        viewport()->unsetCursor();
}

void ChatterView::keyPressEvent(QKeyEvent* event) {
    if (event->matches(QKeySequence::Copy)) return copy();
    if (event->matches(QKeySequence::SelectAll)) return selectAll();
    const bool isControl = event->modifiers().testFlag(Qt::ControlModifier);
    switch (event->key()) {
        case Qt::Key_Home: return moveTo([this] { rowWindow.goToStart(); });
        case Qt::Key_End: return scrollToEnd();
        case Qt::Key_Up:
        case Qt::Key_Down:
            if (!isControl) break;
            return moveCurrentRow(event->key() == Qt::Key_Up ? -1 : 1);
        case Qt::Key_Return:
        case Qt::Key_Enter:
            if (!_currentRow) break;
            return openRow(*_currentRow);
        default: break;
    }
    QAbstractScrollArea::keyPressEvent(event);
}

void ChatterView::focusInEvent(QFocusEvent* event) {
    QAbstractScrollArea::focusInEvent(event);
    viewport()->update();
}

void ChatterView::focusOutEvent(QFocusEvent* event) {
    QAbstractScrollArea::focusOutEvent(event);
    if (!isTakenByMenus(event->reason())) selection.clear();
    viewport()->update();
}

void ChatterView::contextMenuEvent(QContextMenuEvent* event) {
    const bool isByKey = event->reason() == QContextMenuEvent::Keyboard;
    std::vector<Links::Link> links;
    QPoint place = event->globalPos();
    if (isByKey) {
        if (_currentRow) {
            links = rows.layout(*_currentRow).links();
            if (rowWindow.find(*_currentRow) != nullptr)
                place = viewport()->mapToGlobal(rowRect(*_currentRow).center());
        }
    } else if (const Links::Link* link = linkAt(viewport()->mapFromGlobal(event->globalPos()))) {
        links.push_back(*link);
    }
    makeMenu(links)->popup(place);
    event->accept();
}

QSize ChatterView::sizeHint() const { return {512, 340}; }

QMenu* ChatterView::makeMenu(const std::vector<Links::Link>& links) {
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    QAction* copying = menu->addAction(tr("Copy"), this, &ChatterView::copy);
    copying->setEnabled(!selection.isEmpty() || _currentRow.has_value());
    if (!links.empty()) {
        const QUrl url = links.front().url;
        menu->addAction(tr("Copy Link"), this, [url] { QApplication::clipboard()->setText(url.toString()); });
        menu->addAction(tr("Open Link"), this, [this, url] { open(url); });
    }
    menu->addSeparator();
    menu->addAction(tr("Select All"), this, &ChatterView::selectAll)->setEnabled(rowCount() > 0);
    return menu;
}

void ChatterView::open(const QUrl& url) {
    if (openLink && Links::mayOpen(url)) openLink(url);
}

void ChatterView::announce(std::size_t oldCount) {
    if (!QAccessible::isActive() || !isVisible()) return;
    const std::size_t first = std::max(oldCount, rowCount() - std::min(rowCount(), mostAnnounced));
    for (std::size_t row = first; row < rowCount(); ++row) {
        QAccessibleEvent event(this, QAccessible::ObjectCreated);
        event.setChild(static_cast<int>(row));
        QAccessible::updateAccessibility(&event);
    }
}
