#include "DesktopViews/TranscriptChange.h"

#include <algorithm>
#include <variant>

namespace {

bool isSameMessage(const Transcript::Item& one, const Transcript::Item& other) {
    const auto* a = std::get_if<Transcript::Text>(&one);
    const auto* b = std::get_if<Transcript::Text>(&other);
    return a != nullptr && b != nullptr && a->time == b->time && a->author == b->author && a->text == b->text;
}

}  // namespace

TranscriptChange::TranscriptChange(const Transcript& before, const Transcript& after)
    : before(before), after(after), beginning(before.items.sharedBeginning(after.items)) {
    const std::size_t shorter = std::min(before.items.size(), after.items.size());
    while (beginning < shorter && before.items[beginning] == after.items[beginning]) ++beginning;
}

std::optional<std::size_t> TranscriptChange::newRow(std::size_t row) const {
    if (row < beginning) return row;
    const std::size_t oldCount = before.items.size();
    const std::size_t newCount = after.items.size();
    if (row >= oldCount) return std::nullopt;
    const Transcript::Item& item = before.items[row];
    if (row < newCount && after.items[row] == item) return row;
    const std::size_t fromEnd = oldCount - row;
    if (fromEnd <= newCount && after.items[newCount - fromEnd] == item) return newCount - fromEnd;
    if (oldCount == newCount && isSameMessage(item, after.items[row])) return row;
    for (std::size_t i = beginning; i < newCount; ++i)
        if (after.items[i] == item) return i;
    for (std::size_t i = beginning; i < newCount; ++i)
        if (isSameMessage(item, after.items[i])) return i;
    return std::nullopt;
}
