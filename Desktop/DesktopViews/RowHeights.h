#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

/// The heights of a long list's rows and their sums; most are estimates.
///
/// Rows lie in blocks of 256. At first a block has one estimate for all of it, made from a few of its rows, so
/// that opening a list of 100,000 rows touches some 3,000 of them. Asking for a row's place or height looks into
/// its block: from then on each row of the block has an estimate of its own. A measured height replaces the
/// estimate. Looking in and measuring can change the places of all rows below.
///
/// Every operation on a row costs the logarithm of the number of blocks and at most one block; a row takes 4
/// bytes once its block was looked into. Bound to no thread; heights in device-independent pixels.
class RowHeights {
public:
    /// @param estimate  the likely height of a row, above 0; must be cheap. Called only for existing rows
    explicit RowHeights(std::function<int(std::size_t row)> estimate);

    std::size_t count() const { return _count; }
    /// Keeps what is known of the first `kept` rows, forgets the others, and has `count` rows from now on.
    void resize(std::size_t count, std::size_t kept);

    /// The sum of all heights, as far as they are known.
    std::int64_t total() const;
    /// Where a row begins; `total()` for `count()`.
    std::int64_t top(std::size_t row);
    int height(std::size_t row);
    /// The row at `y`: the first row if `y` is above it, the last if below. There must be at least one row.
    std::size_t rowAt(std::int64_t y);

    bool isMeasured(std::size_t row) const;
    void setMeasured(std::size_t row, int height);

private:
    static constexpr std::size_t blockSize = 256;
    struct Block {
        std::int64_t sum = 0;
        // Null until `lookInto`. Estimates are stored as negative numbers.
        std::unique_ptr<std::vector<std::int32_t>> rows;
    };

    std::size_t rowsOf(std::size_t block) const;
    std::int64_t sampled(std::size_t begin, std::size_t end) const;
    void lookInto(std::size_t block);
    void append(std::int64_t sum);
    void add(std::size_t block, std::int64_t difference);
    std::int64_t before(std::size_t block) const;

    std::function<int(std::size_t)> estimate;
    std::size_t _count = 0;
    std::vector<Block> blocks;
    std::vector<std::int64_t> tree;  // a Fenwick tree over the sums of the blocks; indices begin at 1
};
