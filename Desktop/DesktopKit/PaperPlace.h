#pragma once

#include <optional>

#include <QPageLayout>
#include <QPointF>
#include <QSizeF>

/// Where a small page is printed on a sheet of paper, and how large.
struct PaperPlace {
    QPointF origin;    // in points, from the top left of the paper
    double scale = 1;  // at most 1

    /// The place in the top left corner: at full size if there is room, otherwise smaller, so that the page stays
    /// whole. The margins are those of the layout, but at least a few millimetres if the sheet is large enough. If
    /// the page does not fit between them at full size, they are only those that the printer needs.
    /// @param layout  of the paper, which may be in landscape
    /// @param page  the page's size in points
    /// @param border  white that the page needs on every side, in points; it shrinks with the page
    /// @return nothing if the margins leave no room
    static std::optional<PaperPlace> of(const QPageLayout& layout, const QSizeF& page, double border);
};
