#pragma once

#include "DesktopViews/RowStyle.h"
#include "TranscriptKit/Links.h"

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <QPointF>
#include <QRectF>
#include <QString>

class QPainter;
class QTextLayout;

/// What one row shows; all texts are already safe to show.
struct RowContent {
    enum class Kind { text, activity, daybreak };

    Kind kind = Kind::text;
    QString text;
    bool startsBlock = false;  // has an emoji, or a name
    QString time;              // empty if the row shows none
    QString emoji;             // empty if the row shows none
    QString name;              // empty if the row shows none, or the view shows no names
    QColor nameColor;
};

/// One row at one width: its height, how it is painted, and what is where in it. Positions in the text
/// are in UTF-16 units, points are relative to the row's upper left corner.
///
/// Each paragraph runs in the direction of its own first strong letter, and is aligned accordingly. Laying out
/// takes the longer, the longer the text is (some 20 ms for 64 Ki of words, 110 ms for as many letters without
/// a blank): the caller gives no more than `mostCharacters` and a "…".
/// Main thread. Can't be copied, since it holds laid out text.
class RowLayout {
public:
    /// The most that is laid out of a text; a longer one is cut there and ends with "…".
    static constexpr qsizetype mostCharacters = 65536;

    RowLayout(RowContent content, const RowStyle& style, int width);
    ~RowLayout();

    int height() const { return _height; }
    const RowContent& content() const { return _content; }
    const std::vector<Links::Link>& links() const { return _links; }

    /// @param selected  begin and end of the selected part of the text
    /// @param clip      in the painter's coordinates: nothing outside needs to be drawn
    void paint(QPainter& painter, const RowStyle& style, QPointF origin, const QRectF& clip,
               std::pair<int, int> selected, bool isActive) const;

    /// The place in the text that is nearest to the point.
    int positionAt(QPointF point) const;
    /// Whether the point is over the letters, not just over the row.
    bool isOverText(QPointF point) const;
    /// The link whose letters are at the point; null if there is none. Lives as long as the row.
    const Links::Link* linkAt(QPointF point) const;
    /// Begin and end of the word around a position, or of the blanks or signs between two words.
    std::pair<int, int> wordAt(int position) const;

private:
    struct Piece {
        int start = 0;
        double top = 0;
        double bottom = 0;
        std::unique_ptr<QTextLayout> layout;
    };

    void layOutText(const RowStyle& style, int width);
    double layOut(Piece& piece, const QString& text, const RowStyle& style, double y, bool isLarge);
    const Piece* pieceAt(double y) const;
    std::optional<int> exactPositionAt(QPointF point) const;
    void paintText(QPainter& painter, const RowStyle& style, QPointF origin, const QRectF& clip,
                   std::pair<int, int> selected, bool isActive) const;
    void paintNote(QPainter& painter, const RowStyle& style, QPointF origin) const;

    RowContent _content;
    std::vector<Links::Link> _links;
    std::vector<Piece> pieces;
    double textLeft = 0;
    double textWidth = 0;
    double firstBaseline = 0;  // the baseline of the first line, used for time and emoji too
    int width = 0;
    int _height = 0;
};
