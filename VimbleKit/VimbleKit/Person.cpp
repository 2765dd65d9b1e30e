#include "VimbleKit/Person.h"

#include "Text/Text.h"

std::string Person::displayName() const {
    if (!name.empty()) return name;
    return "anonymous" + std::string(Text::prefix(publicKey, 6));
}

std::string Person::displayEmoji() const { return emoji.empty() ? "😐" : emoji; }
