#pragma once

#include <optional>

#include <QPageLayout>
#include <QPointF>
#include <QSizeF>

/// Where on a sheet of paper a small page comes to lie, and how large.
struct PaperPlace {
    QPointF origin;    // in points, from the top left of the paper
    double scale = 1;  // at most 1

    /// In the top left corner: as it is where there is room, otherwise smaller, so that it stays whole. The
    /// margins are those of the layout, and a few millimetres at least on a sheet that has them; where the page
    /// does not fit between them as it is, only those that the printer needs.
    /// @param layout  of the paper, which may lie on its side
    /// @param page  the page's size in points
    /// @param border  points of white that the page needs on every side, and that shrink with it
    /// @return nothing for paper that is all margin
    static std::optional<PaperPlace> of(const QPageLayout& layout, const QSizeF& page, double border);
};
