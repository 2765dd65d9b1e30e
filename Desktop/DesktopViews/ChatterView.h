#pragma once

#include "DesktopViews/RowWindow.h"
#include "DesktopViews/TextSelection.h"
#include "DesktopViews/TranscriptRows.h"
#include "TranscriptKit/Transcript.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include <QAbstractScrollArea>
#include <QBasicTimer>
#include <QElapsedTimer>
#include <QPoint>
#include <QRect>
#include <QString>
#include <QUrl>

class QMenu;

/// Shows a transcript as a list of rows whose text can be selected and copied.
///
/// Made for long histories: only rows near the screen are laid out. Their heights are then measured and
/// kept for that width; rows far away have estimated heights, and correcting these does not move the rows on
/// the screen. One more row at the end costs the same at any length.
///
/// When a transcript is set, the view scrolls to its end only if the reader was within 4 points of the end
/// and rows were only added there; otherwise the rows on the screen stay in place.
///
/// With the mouse, text is selected within a row and across rows; with the keyboard, Ctrl and an arrow
/// moves through the rows, and Return opens the links of one. Of a text of more than
/// `RowLayout::mostCharacters` only the beginning is laid out, followed by "…"; if the whole row is selected
/// (Select All, triple click), all of the text is copied.
class ChatterView : public QAbstractScrollArea {
    Q_OBJECT

public:
    /// How the rows show who wrote a message.
    enum class Authors {
        emoji,  // by the emoji alone, for a chat of two
        named,  // the first row of each block also has the display name, in the author's colour
    };

    explicit ChatterView(Authors authors, QWidget* parent = nullptr);
    ~ChatterView() override;

    void setTranscript(Transcript transcript);
    const Transcript& transcript() const { return _transcript; }

    /// Sets the function that gives the display name of an author, not yet made safe to show: the view does that.
    /// It is called when a row is filled, and for screen readers also where rows show no names. Without one,
    /// authors are "Anonymous".
    void setNameOf(std::function<std::string(const std::string& author)> nameOf);
    /// Makes the rows ask for the names again.
    void namesChanged();

    /// Sets what opens a link: the desktop's own way, unless set. It gets only links that `Links::mayOpen`.
    void setOpenLink(std::function<void(const QUrl&)> openLink);
    /// Sets the clock for the headings of days, which change at midnight.
    void setClock(std::function<Date()> clock);

    bool isAtEnd() const;
    void scrollToEnd();

    /// Rows as a screen reader and the keyboard see them. Numbers count from 0 at the top.
    std::size_t rowCount() const { return _transcript.items.size(); }
    /// "Ann, 3:05, text", or the words of a note or heading.
    QString spokenRow(std::size_t row) const { return rows.spoken(row); }
    /// The row's place in the viewport's coordinates, also for a row that is not on the screen.
    QRect rowRect(std::size_t row) const;
    /// The row at `y` in the viewport, if there is one.
    std::optional<std::size_t> rowAt(int y) const;
    /// The row on which the keyboard acts; none until the keyboard was used.
    std::optional<std::size_t> currentRow() const { return _currentRow; }
    /// Makes a row the current one and brings it onto the screen.
    void setCurrentRow(std::size_t row);
    /// Opens the row's link, or lets the user choose if it has several.
    void openRow(std::size_t row);

    /// The selected texts of messages, separated by line ends.
    QString selectedText() const;

public Q_SLOTS:
    /// Puts `selectedText` on the clipboard, or if it is empty the text of the current row.
    void copy();
    void selectAll();

protected:
    bool event(QEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void timerEvent(QTimerEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    QSize sizeHint() const override;

private:
    enum class Unit { position, word, row };

    void settle();
    void settleWhenShown();
    void restyle(bool isOnlyColors);
    void checkToday();
    void moveTo(const std::function<void()>& wish);
    void moveCurrentRow(int step);

    TextPosition positionAt(QPoint point);
    TextSpan spanAt(QPoint point);
    const Links::Link* linkAt(QPoint point);
    void startSelection(QPoint point, Unit unit, bool isExtended);
    void extendSelection(QPoint point);
    void showPointer(QPoint point);
    void open(const QUrl& url);
    QMenu* makeMenu(const std::vector<Links::Link>& links);
    void announce(std::size_t oldCount);

    Transcript _transcript;
    // Mutable, since questions such as `rowRect` may lay out and measure a row, which changes nothing visible.
    mutable TranscriptRows rows;
    mutable RowWindow rowWindow;
    std::function<void(const QUrl&)> openLink;
    std::function<Date()> clock;
    bool isSettling = false;
    bool isUnsettled = true;
    int shownWidth = -1;
    QBasicTimer midnight;

    TextSelection selection;
    Unit unit = Unit::position;
    bool isSelecting = false;
    QPoint pressed;
    QUrl pressedLink;
    QPoint pointer;
    QElapsedTimer sinceDoubleClick;
    QBasicTimer dragScroll;
    std::optional<std::size_t> _currentRow;
};
