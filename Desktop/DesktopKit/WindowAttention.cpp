#include "DesktopKit/WindowAttention.h"

#include "DesktopKit/ChatterWindow.h"
#include "DesktopKit/RoomWindow.h"
#include "DesktopKit/RosterWindow.h"

#include <utility>

namespace {

/// When that text came, if it stands last in the chat; null otherwise.
const Date* arrival(const Chat* chat, const Person& author, const std::string& text) {
    if (chat == nullptr || chat->messages.empty()) return nullptr;
    const Message& last = chat->messages.back();
    return last.author == author.publicKey && last.text == text ? &last.timestamp : nullptr;
}

}  // namespace

WindowAttention::WindowAttention(Kit& kit, const Lifecycle& lifecycle, RosterWindow& people, RoomWindow& room,
                                 std::function<void(QWidget&)> alert)
    : kit(kit), lifecycle(lifecycle), people(people), room(room), alert(std::move(alert)) {}

void WindowAttention::requestUserAttention(const Person& author, const std::string& text) {
    QWidget* window = windowOf(author, text);
    // A minimised window is visible in this sense.
    if (window == nullptr || !window->isVisible()) window = &people;
    if (window->isVisible()) alert(*window);
}

QWidget* WindowAttention::windowOf(const Person& author, const std::string& text) const {
    const State& state = kit.state();
    const Date* inRoom = arrival(&state.room, author, text);
    const Date* inTalk = arrival(state.conversations.find(author.publicKey), author, text);
    // Somebody may say the same twice, here and there: it is about the latter.
    if (inRoom != nullptr && (inTalk == nullptr || *inTalk < *inRoom)) return &room;
    return ChatterWindow::existing(author.publicKey);
}
