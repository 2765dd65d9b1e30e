#include "DesktopViews/RowLayout.h"

#include "DesktopViews/Look.h"
#include "DesktopViews/Wrapping.h"
#include "TranscriptKit/EmojiRanges.h"

#include <QFontMetricsF>
#include <QPaintDevice>
#include <QPainter>
#include <QTextBoundaryFinder>
#include <QTextLayout>

#include <algorithm>
#include <cmath>

namespace {

// In characters. Larger texts are laid out in pieces that end with a paragraph, so that drawing a part of the text
// costs no more than that part.
constexpr qsizetype pieceSize = 2000;
constexpr int mostLargeEmoji = 3;

struct Paragraphs {
    qsizetype start;
    qsizetype length;  // without the last line end
    bool isRightToLeft;
};

bool isLineEnd(QChar character) {
    return character == u'\n' || character == QChar::ParagraphSeparator || character == QChar::LineSeparator;
}

/// Groups neighbouring paragraphs of one direction, up to `pieceSize`. A paragraph without a letter counts as of
/// the direction of the paragraph before.
std::vector<Paragraphs> paragraphsOf(const QString& text) {
    std::vector<Paragraphs> all;
    qsizetype start = 0;
    while (true) {
        qsizetype end = start;
        while (end < text.size() && !isLineEnd(text[end])) ++end;
        const QStringView paragraph = QStringView(text).mid(start, end - start);
        const bool isRightToLeft = paragraph.isRightToLeft();
        const bool isNeutral =
            !isRightToLeft && std::none_of(paragraph.begin(), paragraph.end(), [](QChar c) { return c.isLetter(); });
        const bool goesOn = !all.empty() && (isNeutral || all.back().isRightToLeft == isRightToLeft) &&
                            end - all.back().start <= pieceSize;
        if (goesOn)
            all.back().length = end - all.back().start;
        else
            all.push_back({start, end - start, isRightToLeft});
        if (end == text.size()) return all;
        start = end + 1;
    }
}

/// A dashed line whose thickness and place are whole device pixels, so that it is sharp at any scale.
void drawDashes(QPainter& painter, const QColor& color, double left, double right, double y) {
    const double ratio = painter.device()->devicePixelRatioF();
    const double thickness = std::max(1.0, std::floor(ratio)) / ratio;
    const double top = std::round(y * ratio) / ratio;
    const double dash = std::round(3 * ratio) / ratio;
    const double first = std::round(left * ratio) / ratio;
    for (double x = first; x < right; x += 2 * dash)
        painter.fillRect(QRectF(x, top, std::min(dash, right - x), thickness), color);
}

}  // namespace

RowLayout::RowLayout(RowContent content, const RowStyle& style, int width)
    : _content(std::move(content)), width(width) {
    switch (_content.kind) {
        case RowContent::Kind::text: layOutText(style, width); return;
        case RowContent::Kind::activity: {
            Piece piece;
            textLeft = style.margin;
            textWidth = std::max(1, width - 2 * style.margin);
            piece.top = style.notePadding;
            piece.layout = std::make_unique<QTextLayout>(_content.text, style.activityFont);
            QTextOption option(Qt::AlignHCenter);
            option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
            piece.layout->setTextOption(option);
            piece.layout->setFormats(Look::emojiFormats(_content.text, style.activityFont));
            piece.layout->beginLayout();
            double y = 0;
            for (QTextLine line = piece.layout->createLine(); line.isValid(); line = piece.layout->createLine()) {
                line.setLineWidth(textWidth);
                line.setPosition({0, y});
                y += std::max<double>(style.noteHeight, std::ceil(line.height()));
            }
            piece.layout->endLayout();
            piece.bottom = piece.top + std::max<double>(y, style.noteHeight);
            _height = static_cast<int>(piece.bottom) + style.notePadding;
            pieces.push_back(std::move(piece));
            return;
        }
        case RowContent::Kind::daybreak:
            _height = style.dayPadding + style.dayHeight + 2 * style.padding + style.dayPadding / 2;
            return;
    }
}

RowLayout::~RowLayout() = default;

void RowLayout::layOutText(const RowStyle& style, int width) {
    _links = Links::find(_content.text);
    textLeft = style.textLeft;
    textWidth = style.textWidth(width);
    double y = style.padding + (_content.startsBlock ? style.blockPadding : 0);
    if (!_content.name.isEmpty()) {
        firstBaseline = y + std::ceil(QFontMetricsF(style.nameFont).ascent());
        y += style.nameHeight;
    }
    const bool isLarge = EmojiRanges::isOnlyEmoji(_content.text, mostLargeEmoji);
    for (const Paragraphs& paragraphs : paragraphsOf(_content.text)) {
        Piece piece;
        piece.start = static_cast<int>(paragraphs.start);
        QString text = _content.text.mid(paragraphs.start, paragraphs.length);
        std::replace_if(text.begin(), text.end(), isLineEnd, QChar(QChar::LineSeparator));
        QTextOption option(paragraphs.isRightToLeft ? Qt::AlignRight : Qt::AlignLeft);
        option.setTextDirection(paragraphs.isRightToLeft ? Qt::RightToLeft : Qt::LeftToRight);
        option.setWrapMode(Wrapping::of(text));
        option.setTabStopDistance(8 * style.characterWidth);
        piece.layout = std::make_unique<QTextLayout>();
        piece.layout->setTextOption(option);
        y = layOut(piece, text, style, y, isLarge);
        pieces.push_back(std::move(piece));
    }
    _height = static_cast<int>(std::ceil(y)) + style.padding;
}

double RowLayout::layOut(Piece& piece, const QString& text, const RowStyle& style, double y, bool isLarge) {
    const QFont& font = isLarge ? style.largeEmojiFont : style.messageFont;
    piece.layout->setText(text);
    piece.layout->setFont(font);
    piece.layout->setCacheEnabled(true);
    QVector<QTextLayout::FormatRange> formats = Look::emojiFormats(text, font);
    for (const Links::Link& link : _links) {
        const int begin = std::max(0, static_cast<int>(link.start) - piece.start);
        const int end =
            std::min(static_cast<int>(text.size()), static_cast<int>(link.start + link.length) - piece.start);
        if (begin >= end) continue;
        QTextLayout::FormatRange range{.start = begin, .length = end - begin, .format = {}};
        range.format.setFontUnderline(true);
        range.format.setForeground(style.secondary);
        formats.append(range);
    }
    piece.layout->setFormats(formats);
    piece.top = y;
    double inPiece = 0;
    piece.layout->beginLayout();
    for (QTextLine line = piece.layout->createLine(); line.isValid(); line = piece.layout->createLine()) {
        line.setLineWidth(textWidth);
        // Give all lines one height, whatever fonts they hold; only a taller line takes more.
        const double ascent = std::max<double>(isLarge ? 0 : style.lineAscent, std::ceil(line.ascent()));
        line.setPosition({0, inPiece + ascent - line.ascent()});
        if (firstBaseline == 0) firstBaseline = y + ascent;
        inPiece += std::max<double>(style.lineHeight, ascent + std::ceil(line.descent()));
    }
    piece.layout->endLayout();
    piece.bottom = y + inPiece;
    return piece.bottom;
}

void RowLayout::paint(QPainter& painter, const RowStyle& style, QPointF origin, const QRectF& clip,
                      std::pair<int, int> selected, bool isActive) const {
    switch (_content.kind) {
        case RowContent::Kind::text: paintText(painter, style, origin, clip, selected, isActive); return;
        case RowContent::Kind::activity:
            painter.setPen(style.secondary);
            pieces.front().layout->draw(&painter, origin + QPointF(textLeft, pieces.front().top));
            return;
        case RowContent::Kind::daybreak: paintNote(painter, style, origin); return;
    }
}

void RowLayout::paintText(QPainter& painter, const RowStyle& style, QPointF origin, const QRectF& clip,
                          std::pair<int, int> selected, bool isActive) const {
    const double baseline = origin.y() + firstBaseline;
    if (!_content.time.isEmpty()) {
        painter.setFont(style.timeFont);
        painter.setPen(style.tertiary);
        const double width = QFontMetricsF(style.timeFont).horizontalAdvance(_content.time);
        painter.drawText(QPointF(origin.x() + style.timeRight - width, baseline), _content.time);
    }
    if (!_content.emoji.isEmpty()) {
        painter.setFont(style.emojiFont);
        painter.setPen(style.label);
        const double width = QFontMetricsF(style.emojiFont).horizontalAdvance(_content.emoji);
        painter.drawText(QPointF(origin.x() + style.emojiLeft + (style.emojiWidth - width) / 2, baseline),
                         _content.emoji);
    }
    if (!_content.name.isEmpty()) {
        QTextLayout name(QFontMetricsF(style.nameFont).elidedText(_content.name, Qt::ElideRight, textWidth),
                         style.nameFont);
        name.setFormats(Look::emojiFormats(name.text(), style.nameFont));
        QTextOption option(Qt::AlignLeft);
        option.setTextDirection(Qt::LeftToRight);
        option.setWrapMode(QTextOption::NoWrap);
        name.setTextOption(option);
        name.beginLayout();
        QTextLine line = name.createLine();
        name.endLayout();
        painter.setPen(_content.nameColor);
        if (line.isValid()) name.draw(&painter, QPointF(origin.x() + textLeft, baseline - line.ascent()));
    }
    painter.setPen(style.label);
    const QPalette::ColorGroup group = isActive ? QPalette::Active : QPalette::Inactive;
    for (const Piece& piece : pieces) {
        if (origin.y() + piece.bottom < clip.top() || origin.y() + piece.top > clip.bottom()) continue;
        QVector<QTextLayout::FormatRange> selections;
        const int length = static_cast<int>(piece.layout->text().size());
        const int begin = std::clamp(selected.first - piece.start, 0, length);
        const int end = std::clamp(selected.second - piece.start, 0, length);
        if (begin < end) {
            QTextLayout::FormatRange range{.start = begin, .length = end - begin, .format = {}};
            range.format.setBackground(style.palette.brush(group, QPalette::Highlight));
            range.format.setForeground(style.palette.brush(group, QPalette::HighlightedText));
            selections.append(range);
        }
        piece.layout->draw(&painter, origin + QPointF(textLeft, piece.top), selections, clip);
    }
}

void RowLayout::paintNote(QPainter& painter, const RowStyle& style, QPointF origin) const {
    const double left = origin.x() + style.margin;
    const double room = std::max(1, width - 2 * style.margin);
    const QFontMetricsF metrics(style.dayFont);
    painter.setFont(style.dayFont);
    painter.setPen(style.secondary);
    const QRectF line(left, origin.y() + style.dayPadding, room, style.dayHeight);
    painter.drawText(line, Qt::AlignHCenter | Qt::AlignVCenter | Qt::TextSingleLine,
                     metrics.elidedText(_content.text, Qt::ElideRight, room));
    drawDashes(painter, style.divider, left, left + room, line.bottom() + style.padding);
}

const RowLayout::Piece* RowLayout::pieceAt(double y) const {
    for (const Piece& piece : pieces)
        if (y < piece.bottom) return &piece;
    return pieces.empty() ? nullptr : &pieces.back();
}

int RowLayout::positionAt(QPointF point) const {
    if (_content.kind != RowContent::Kind::text) return 0;
    const Piece* piece = pieceAt(point.y());
    if (piece == nullptr) return 0;
    const double y = point.y() - piece->top;
    for (int i = 0; i < piece->layout->lineCount(); ++i) {
        const QTextLine line = piece->layout->lineAt(i);
        const bool isLast = i + 1 == piece->layout->lineCount();
        if (!isLast && y >= piece->layout->lineAt(i + 1).y()) continue;
        return piece->start + line.xToCursor(point.x() - textLeft);
    }
    return piece->start;
}

std::optional<int> RowLayout::exactPositionAt(QPointF point) const {
    if (_content.kind != RowContent::Kind::text || pieces.empty()) return std::nullopt;
    if (point.y() < pieces.front().top || point.y() >= pieces.back().bottom) return std::nullopt;
    const Piece& piece = *pieceAt(point.y());
    const QPointF inPiece(point.x() - textLeft, point.y() - piece.top);
    for (int i = 0; i < piece.layout->lineCount(); ++i) {
        const QTextLine line = piece.layout->lineAt(i);
        if (!line.naturalTextRect().adjusted(0, -1, 0, 1).contains(inPiece)) continue;
        return piece.start + line.xToCursor(inPiece.x(), QTextLine::CursorOnCharacter);
    }
    return std::nullopt;
}

bool RowLayout::isOverText(QPointF point) const { return exactPositionAt(point).has_value(); }

const Links::Link* RowLayout::linkAt(QPointF point) const {
    const std::optional<int> position = exactPositionAt(point);
    if (!position) return nullptr;
    for (const Links::Link& link : _links)
        if (*position >= link.start && *position < link.start + link.length) return &link;
    return nullptr;
}

std::pair<int, int> RowLayout::wordAt(int position) const {
    const int length = static_cast<int>(_content.text.size());
    if (length == 0) return {0, 0};
    const int inside = std::clamp(position, 0, length - 1);
    QTextBoundaryFinder finder(QTextBoundaryFinder::Word, _content.text);
    finder.setPosition(inside);
    const int begin = finder.isAtBoundary() ? inside : static_cast<int>(finder.toPreviousBoundary());
    finder.setPosition(inside);
    const int end = static_cast<int>(finder.toNextBoundary());
    return {std::max(0, begin), end < 0 ? length : end};
}
