#include "DesktopViews/RowHeights.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstdlib>

namespace {

// The height of a block is estimated from so many of its rows, which is good enough for a scroll bar.
constexpr std::size_t samples = 8;

std::size_t lowestBit(std::size_t number) { return number & (~number + 1); }

}  // namespace

RowHeights::RowHeights(std::function<int(std::size_t)> estimate) : estimate(std::move(estimate)), tree(1) {}

void RowHeights::resize(std::size_t count, std::size_t kept) {
    kept = std::min({kept, count, _count});
    // Keep the known heights of the kept rows also in the block in which these end.
    std::vector<std::int32_t> begun;
    const bool wasDetailed = kept % blockSize != 0 && blocks[kept / blockSize].rows != nullptr;
    const bool isWhole = kept == _count;
    const std::int64_t begunSum = kept % blockSize != 0 ? blocks[kept / blockSize].sum : 0;
    if (wasDetailed) {
        begun = std::move(*blocks[kept / blockSize].rows);
        begun.resize(kept % blockSize);
    }
    blocks.resize(kept / blockSize);
    tree.resize(blocks.size() + 1);
    _count = count;
    for (std::size_t row = blocks.size() * blockSize; row < count; row = blocks.size() * blockSize) {
        const std::size_t end = std::min(count, row + blockSize);
        if (row >= kept) {
            append(sampled(row, end));
        } else if (wasDetailed) {
            for (std::size_t i = kept; i < end; ++i) begun.push_back(-estimate(i));
            std::int64_t sum = 0;
            for (std::int32_t height : begun) sum += std::abs(height);
            append(sum);
            blocks.back().rows = std::make_unique<std::vector<std::int32_t>>(std::move(begun));
        } else if (isWhole) {
            append(begunSum + sampled(kept, end));
        } else {
            append(sampled(row, end));
        }
    }
}

std::int64_t RowHeights::total() const { return before(blocks.size()); }

std::int64_t RowHeights::top(std::size_t row) {
    if (row >= _count) return total();
    lookInto(row / blockSize);
    std::int64_t y = before(row / blockSize);
    const std::vector<std::int32_t>& rows = *blocks[row / blockSize].rows;
    for (std::size_t i = 0; i < row % blockSize; ++i) y += std::abs(rows[i]);
    return y;
}

int RowHeights::height(std::size_t row) {
    lookInto(row / blockSize);
    return std::abs((*blocks[row / blockSize].rows)[row % blockSize]);
}

std::size_t RowHeights::rowAt(std::int64_t y) {
    assert(_count > 0);
    // Descend the tree to the last block that begins at y or above.
    std::size_t block = 0;
    std::int64_t rest = std::max<std::int64_t>(0, y);
    for (std::size_t step = std::bit_floor(blocks.size()); step > 0; step /= 2) {
        if (block + step <= blocks.size() && tree[block + step] <= rest) {
            block += step;
            rest -= tree[block];
        }
    }
    // Looking into a block can lessen its sum, so that y lies in the next block.
    for (; block < blocks.size(); ++block) {
        lookInto(block);
        if (rest < blocks[block].sum) break;
        rest -= blocks[block].sum;
    }
    if (block == blocks.size()) return _count - 1;
    std::size_t row = block * blockSize;
    for (std::int32_t height : *blocks[block].rows) {
        if (rest < std::abs(height)) break;
        rest -= std::abs(height);
        ++row;
    }
    return std::min(row, _count - 1);
}

bool RowHeights::isMeasured(std::size_t row) const {
    const Block& block = blocks[row / blockSize];
    return block.rows != nullptr && (*block.rows)[row % blockSize] >= 0;
}

void RowHeights::setMeasured(std::size_t row, int height) {
    lookInto(row / blockSize);
    std::int32_t& known = (*blocks[row / blockSize].rows)[row % blockSize];
    const std::int64_t difference = std::int64_t{height} - std::abs(known);
    known = height;
    add(row / blockSize, difference);
}

std::size_t RowHeights::rowsOf(std::size_t block) const { return std::min(blockSize, _count - block * blockSize); }

std::int64_t RowHeights::sampled(std::size_t begin, std::size_t end) const {
    const std::size_t rows = end - begin;
    const std::size_t asked = std::min(rows, samples);
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < asked; ++i) sum += estimate(begin + i * rows / asked);
    return asked == 0 ? 0 : sum * static_cast<std::int64_t>(rows) / static_cast<std::int64_t>(asked);
}

void RowHeights::lookInto(std::size_t block) {
    if (blocks[block].rows) return;
    auto rows = std::make_unique<std::vector<std::int32_t>>();
    rows->reserve(rowsOf(block));
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < rowsOf(block); ++i) {
        const int height = estimate(block * blockSize + i);
        rows->push_back(-height);
        sum += height;
    }
    blocks[block].rows = std::move(rows);
    add(block, sum - blocks[block].sum);
}

void RowHeights::append(std::int64_t sum) {
    blocks.push_back({.sum = sum, .rows = nullptr});
    const std::size_t node = blocks.size();
    std::int64_t below = sum;
    for (std::size_t child = node - 1; child > node - lowestBit(node); child -= lowestBit(child)) below += tree[child];
    tree.push_back(below);
}

void RowHeights::add(std::size_t block, std::int64_t difference) {
    if (difference == 0) return;
    blocks[block].sum += difference;
    for (std::size_t node = block + 1; node < tree.size(); node += lowestBit(node)) tree[node] += difference;
}

std::int64_t RowHeights::before(std::size_t block) const {
    std::int64_t sum = 0;
    for (std::size_t node = block; node > 0; node -= lowestBit(node)) sum += tree[node];
    return sum;
}
