#include "TranscriptKit/Transcript.h"

namespace {

template <class... Values>
std::size_t hashOf(const Values&... values) {
    std::size_t hash = 0;
    ((hash = hash * 31 + std::hash<Values>()(values)), ...);
    return hash;
}

}  // namespace

std::size_t std::hash<Transcript::Text>::operator()(const Transcript::Text& text) const {
    return hashOf(text.text, text.time, text.emoji, text.author, text.toolTip);
}

std::size_t std::hash<Transcript::Activity>::operator()(const Transcript::Activity& activity) const {
    return hashOf(activity.text, activity.time);
}

std::size_t std::hash<Transcript::Daybreak>::operator()(const Transcript::Daybreak& daybreak) const {
    return hashOf(daybreak.day);
}
