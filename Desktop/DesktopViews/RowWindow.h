#pragma once

#include "DesktopViews/RowHeights.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

/// Which rows of a long list are on the screen, and where. Most heights are estimates, and the reader must not
/// notice that.
///
/// The view is anchored to a row and its place on the screen, or to the end of the list, never to a distance from
/// the list's beginning: so estimates can be corrected anywhere without moving the rows on the screen. Changes
/// of the list and moves take effect with `settle`, which measures the rows that come onto the screen and no
/// others.
///
/// Main thread. Lengths in device-independent pixels; places on the screen count from the view's upper edge.
class RowWindow {
public:
    struct VisibleRow {
        std::size_t row = 0;
        int y = 0;
        int height = 0;
    };

    /// A distance from the end that still counts as being at the end.
    static constexpr int endTolerance = 4;

    /// @param estimate  see RowHeights
    /// @param measure   the exact height of a row, above 0
    RowWindow(std::function<int(std::size_t)> estimate, std::function<int(std::size_t)> measure);

    std::size_t count() const { return heights.count(); }
    /// From now on the list has `count` rows, and the first `kept` are unchanged.
    void resize(std::size_t count, std::size_t kept);
    /// Call this when every height may have changed. The first row on the screen stays there.
    void forgetHeights();
    /// Sets the height of the view.
    void setPage(int page) { this->page = page; }
    /// Sets the room that is left below the last row.
    void setMargin(int margin) { this->margin = margin; }

    void goToStart();
    void goToEnd();
    /// Puts a row's upper edge at `y` on the screen.
    void goTo(std::size_t row, int y);
    /// Moves towards the end by a distance, or towards the beginning by a negative one.
    void scrollBy(std::int64_t distance);
    /// Puts a place, counted from the beginning of the list, at the upper edge.
    void jumpTo(std::int64_t place);
    /// Anchors the view to the first row on the screen, if it was anchored to the end. Without effect before the
    /// first `settle`.
    void holdFirstRow();

    void settle();

    /// As of the last `settle`: the rows on the screen in order, the place of the upper edge, and the
    /// largest place that the upper edge can have.
    const std::vector<VisibleRow>& rows() const { return visible; }
    std::int64_t place() const { return _place; }
    std::int64_t lastPlace() const { return _lastPlace; }
    bool isAtEnd() const { return held == Held::end; }
    const VisibleRow* find(std::size_t row) const;
    /// Where a row is on the screen, or would be.
    VisibleRow locate(std::size_t row);

private:
    enum class Held { row, end };

    int measured(std::size_t row);
    void walkUp(std::size_t& row, int& y);
    void walkDown(std::size_t& row, int& y);
    int fill(std::size_t row, int y);

    RowHeights heights;
    std::function<int(std::size_t)> measure;
    int page = 0;
    int margin = 0;

    Held held = Held::end;
    int endDistance = 0;  // how far the list's end is below the view
    std::size_t heldRow = 0;
    int heldY = 0;
    std::optional<double> heldShare;  // used instead of heldY if set: the share of the row that is above the view

    std::vector<VisibleRow> visible;
    std::int64_t _place = 0;
    std::int64_t _lastPlace = 0;
};
