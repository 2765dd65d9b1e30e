#include "DesktopViews/RowWindow.h"

#include <algorithm>
#include <cmath>
#include <utility>

RowWindow::RowWindow(std::function<int(std::size_t)> estimate, std::function<int(std::size_t)> measure)
    : heights(std::move(estimate)), measure(std::move(measure)) {}

void RowWindow::resize(std::size_t count, std::size_t kept) { heights.resize(count, kept); }

void RowWindow::forgetHeights() {
    if (held == Held::row && !heldShare && heldY < 0 && heldRow < heights.count() && heights.isMeasured(heldRow))
        heldShare = -static_cast<double>(heldY) / heights.height(heldRow);
    heights.resize(heights.count(), 0);
}

void RowWindow::goToStart() { goTo(0, 0); }

void RowWindow::goToEnd() {
    held = Held::end;
    endDistance = 0;
}

void RowWindow::goTo(std::size_t row, int y) {
    held = Held::row;
    heldRow = row;
    heldY = y;
    heldShare.reset();
}

void RowWindow::scrollBy(std::int64_t distance) {
    holdFirstRow();
    // For a long way, jump by the estimated places: going from row to row would measure all rows between.
    if (held == Held::end || heldShare || std::abs(heldY - distance) > 2 * std::int64_t{page} + 100) {
        jumpTo(_place + distance);
    } else {
        heldY -= static_cast<int>(distance);
    }
}

void RowWindow::jumpTo(std::int64_t place) {
    if (heights.count() == 0) return;
    const std::size_t row = heights.rowAt(place);
    const std::int64_t above = std::clamp<std::int64_t>(place - heights.top(row), 0, heights.height(row));
    goTo(row, static_cast<int>(-above));
    if (!heights.isMeasured(row)) heldShare = static_cast<double>(above) / heights.height(row);
}

void RowWindow::holdFirstRow() {
    if (held == Held::end && !visible.empty()) goTo(visible.front().row, visible.front().y);
}

void RowWindow::settle() {
    visible.clear();
    if (heights.count() == 0) {
        _place = _lastPlace = 0;
        goToEnd();
        return;
    }
    std::size_t row = heights.count() - 1;
    int y = 0;
    if (held == Held::end) {
        y = page + endDistance - margin - measured(row);
    } else {
        row = std::min(heldRow, row);
        const int height = measured(row);
        y = heldShare ? -static_cast<int>(std::lround(*heldShare * height)) : heldY;
    }
    walkUp(row, y);
    walkDown(row, y);
    const int bottom = fill(row, y);
    if (bottom < page && (row > 0 || y < 0)) {
        // The rows end above the lower edge: move back until the last row is at the edge.
        y += page - bottom;
        walkUp(row, y);
        fill(row, y);
    }
    _place = heights.top(row) - y;
    const std::int64_t total = heights.total() + margin;
    _lastPlace = std::max<std::int64_t>(0, total - page);
    goTo(row, y);
    if (_lastPlace - _place <= endTolerance) {
        held = Held::end;
        endDistance = static_cast<int>(std::max<std::int64_t>(0, _lastPlace - _place));
    }
}

const RowWindow::VisibleRow* RowWindow::find(std::size_t row) const {
    if (visible.empty() || row < visible.front().row || row > visible.back().row) return nullptr;
    return &visible[row - visible.front().row];
}

RowWindow::VisibleRow RowWindow::locate(std::size_t row) {
    if (const VisibleRow* known = find(row)) return *known;
    // Asking for a row far away can correct estimates above the view: correct `_place` by the same amount.
    const std::int64_t first = visible.empty() ? 0 : heights.top(visible.front().row) - visible.front().y;
    const int height = heights.height(row);
    const std::int64_t firstNow = visible.empty() ? 0 : heights.top(visible.front().row) - visible.front().y;
    _place += firstNow - first;
    constexpr std::int64_t far = 1'000'000'000;
    const std::int64_t y = std::clamp(heights.top(row) - firstNow, -far, far);
    return {.row = row, .y = static_cast<int>(y), .height = height};
}

int RowWindow::measured(std::size_t row) {
    if (!heights.isMeasured(row)) heights.setMeasured(row, measure(row));
    return heights.height(row);
}

void RowWindow::walkUp(std::size_t& row, int& y) {
    while (y > 0 && row > 0) y -= measured(--row);
    if (row == 0) y = std::min(y, 0);
}

void RowWindow::walkDown(std::size_t& row, int& y) {
    while (row + 1 < heights.count() && y + measured(row) <= 0) y += measured(row++);
}

int RowWindow::fill(std::size_t row, int y) {
    visible.clear();
    for (; row < heights.count() && (y < page || visible.empty()); ++row) {
        visible.push_back({.row = row, .y = y, .height = measured(row)});
        y += visible.back().height;
    }
    return row == heights.count() ? y + margin : y;
}
