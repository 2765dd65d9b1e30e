#include "DesktopKit/ActivityNotes.h"

#include "QtText/QtText.h"
#include "TranscriptKit/DisplayText.h"

#include <string>
#include <string_view>
#include <variant>

namespace {

std::string safe(std::string_view words) { return fromQt(DisplayText::name(words)); }
std::string nameOf(const Person& person) { return fromQt(DisplayText::person(person)); }

}  // namespace

std::optional<Activity> ActivityNotes::ofChange(const Event& event) {
    if (const auto* e = std::get_if<Events::NameSet>(&event))
        return Activity{safe(e->from) + " name → " + nameOf(e->user), e->when};
    if (const auto* e = std::get_if<Events::EmojiSet>(&event))
        return Activity{nameOf(e->user) + " emoji → " + safe(e->user.displayEmoji()), e->when};
    return std::nullopt;
}

std::optional<Activity> ActivityNotes::ofMembership(const Event& event) {
    if (const auto* e = std::get_if<Events::Add>(&event))
        return Activity{nameOf(e->added) + " was added to the conversation", e->when};
    if (const auto* e = std::get_if<Events::Remove>(&event))
        return Activity{nameOf(e->removed) + " was removed from the conversation", e->when};
    return std::nullopt;
}

const Person* ActivityNotes::changed(const Event& event) {
    if (const auto* e = std::get_if<Events::NameSet>(&event)) return &e->user;
    if (const auto* e = std::get_if<Events::EmojiSet>(&event)) return &e->user;
    return nullptr;
}
