#pragma once

#include "DesktopViews/RowHeights.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

/// Which rows of a long list are on the screen, and where: heights that are mostly estimates, and a
/// reader who must not notice.
///
/// What is held on to is a row and its place on the screen, or the end of the list, never a distance from
/// the list's beginning: so estimates can be corrected anywhere without moving what is being read. A
/// change of the list or of what is wished takes effect with `settle`, which measures the rows that come
/// onto the screen and no others.
///
/// Main thread. Lengths in device-independent pixels; places on the screen count from the view's upper edge.
class RowWindow {
public:
    struct VisibleRow {
        std::size_t row = 0;
        int y = 0;
        int height = 0;
    };

    /// How far from the end still counts as at the end.
    static constexpr int endTolerance = 4;

    /// @param estimate  see RowHeights
    /// @param measure   the exact height of a row, above 0
    RowWindow(std::function<int(std::size_t)> estimate, std::function<int(std::size_t)> measure);

    std::size_t count() const { return heights.count(); }
    /// The list has `count` rows from now on, of which the first `kept` are as they were.
    void resize(std::size_t count, std::size_t kept);
    /// Every height is another one now; the first row on the screen stays there.
    void forgetHeights();
    /// How high the view is.
    void setPage(int page) { this->page = page; }
    /// How much room is left below the last row.
    void setMargin(int margin) { this->margin = margin; }

    void goToStart();
    void goToEnd();
    /// Puts a row's upper edge at `y` on the screen.
    void goTo(std::size_t row, int y);
    /// Moves by so much towards the end.
    void scrollBy(std::int64_t distance);
    /// Puts a place of the whole list at the upper edge.
    void jumpTo(std::int64_t place);
    /// Holds on to the first row on the screen, and no longer to the end. Without effect before the first
    /// `settle`.
    void holdFirstRow();

    void settle();

    /// As of the last `settle`: the rows on the screen in order, the place of the upper edge, and the
    /// largest that it can have.
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
    int endDistance = 0;  // how far the end is below the view
    std::size_t heldRow = 0;
    int heldY = 0;
    std::optional<double> heldShare;  // instead of heldY: how much of the row lies above the view

    std::vector<VisibleRow> visible;
    std::int64_t _place = 0;
    std::int64_t _lastPlace = 0;
};
