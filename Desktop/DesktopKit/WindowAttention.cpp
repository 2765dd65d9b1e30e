#include "DesktopKit/WindowAttention.h"

#include "DesktopKit/ChatterWindows.h"
#include "DesktopKit/RoomWindow.h"
#include "DesktopKit/RosterWindow.h"

#include <utility>

namespace {

/// When that text came, if it is the last message of the chat; null otherwise.
const Date* arrival(const Chat* chat, const Person& author, const std::string& text) {
    if (chat == nullptr || chat->messages.empty()) return nullptr;
    const Message& last = chat->messages.back();
    return last.author == author.publicKey && last.text == text ? &last.timestamp : nullptr;
}

}  // namespace

WindowAttention::WindowAttention(Kit& kit, const Lifecycle& lifecycle, RosterWindow& people, RoomWindow& room,
                                 const ChatterWindows& talks, std::function<void(QWidget&)> alert)
    : kit(kit), lifecycle(lifecycle), people(people), room(room), talks(talks), alert(std::move(alert)) {}

void WindowAttention::requestUserAttention(const Person& author, const std::string& text) {
    QWidget* window = windowOf(author, text);
    // `isVisible` is true for a minimised window too.
    if (window == nullptr || !window->isVisible()) window = &people;
    if (window->isVisible()) alert(*window);
}

QWidget* WindowAttention::windowOf(const Person& author, const std::string& text) const {
    const State& state = kit.state();
    const Date* inRoom = arrival(&state.room, author, text);
    const Date* inTalk = arrival(state.conversations.find(author.publicKey), author, text);
    // If somebody has sent the same text to both, take the later one.
    if (inRoom != nullptr && (inTalk == nullptr || *inTalk < *inRoom)) return &room;
    return talks.existing(author.publicKey);
}
