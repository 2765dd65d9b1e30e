#include "DesktopKit/PaperPlace.h"

#include <algorithm>

#include <QMarginsF>
#include <QRectF>

namespace {

/// The usual margin round a page, in points; on small paper it is a share of the smaller side.
constexpr double usualMargin = 20;
constexpr double smallMarginShare = 0.04;

QMarginsF wider(const QMarginsF& one, const QMarginsF& other) {
    return {std::max(one.left(), other.left()), std::max(one.top(), other.top()), std::max(one.right(), other.right()),
            std::max(one.bottom(), other.bottom())};
}

QMarginsF inPoints(const QMarginsF& margins, const QPageLayout& layout) {
    return QPageLayout(layout.pageSize(), layout.orientation(), margins, layout.units()).margins(QPageLayout::Point);
}

}  // namespace

std::optional<PaperPlace> PaperPlace::of(const QPageLayout& layout, const QSizeF& page, double border) {
    const QRectF paper = layout.fullRect(QPageLayout::Point);
    const double least = std::min(usualMargin, smallMarginShare * std::min(paper.width(), paper.height()));
    const QMarginsF needed = wider(inPoints(layout.minimumMargins(), layout), QMarginsF(least, least, least, least));
    const QMarginsF wanted = wider(layout.margins(QPageLayout::Point), needed);
    for (const QMarginsF& margins : {wanted, needed}) {
        const QRectF room = paper.marginsRemoved(margins);
        const double scale =
            std::min({1.0, room.width() / (page.width() + 2 * border), room.height() / (page.height() + 2 * border)});
        if (scale == 1 || (margins == needed && scale > 0))
            return PaperPlace{room.topLeft() + QPointF(border, border) * scale, scale};
    }
    return std::nullopt;
}
