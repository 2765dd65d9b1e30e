#include "DesktopKit/RoomVC.h"

#include "DesktopKit/ActivityNotes.h"
#include "DesktopKit/ChatPane.h"

#include <QVBoxLayout>

#include <utility>

RoomVC::RoomVC(Kit& kit, MainLoop& loop, QWidget* parent)
    : QWidget(parent),
      kit(kit),
      loop(loop),
      pane(new ChatPane(kit, loop, ChatterView::Authors::named, Kit::roomKey, this)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(pane);
    setFocusProxy(pane);
    pane->input().setDelegate(this);

    kit.observeState(*this, [](RoomVC& self, const State& now) { self.stateChanged(now); });
    kit.observeEvents(*this, [](RoomVC& self, const Event& event) { self.happened(event); });
}

ChatterView& RoomVC::output() { return pane->output(); }
InputView& RoomVC::input() { return pane->input(); }
const std::vector<Activity>& RoomVC::activities() const { return pane->activities(); }

bool RoomVC::didSubmit(const std::string& text) {
    pane->submit(text);
    return true;
}

void RoomVC::showEvent(QShowEvent* event) {
    // A window that comes back minimised gets this event too, but nobody sees it before it gets the next one.
    if (!window()->isMinimized()) viewWillAppear();
    QWidget::showEvent(event);
}

void RoomVC::hideEvent(QHideEvent* event) {
    // Mark as read what came while the room was on the screen.
    if (!event->spontaneous()) kit.markRoomRead();
    QWidget::hideEvent(event);
}

void RoomVC::stateChanged(const State& now) {
    noteOwnChange(now);
    state = now;
    showTranscript();
}

/// Notes the user's own changes from the state: the engine sends events only about others, but the room shows
/// everybody's names.
void RoomVC::noteOwnChange(const State& now) {
    const Person* before = state && state->endpoint == now.endpoint ? state->me() : nullptr;
    const Person* after = now.me();
    if (before == nullptr || after == nullptr) return;
    if (before->displayName() != after->displayName())
        pane->addActivity(*ActivityNotes::ofChange(Events::NameSet{*after, before->displayName(), loop.now()}));
    if (before->displayEmoji() != after->displayEmoji())
        pane->addActivity(*ActivityNotes::ofChange(Events::EmojiSet{*after, before->displayEmoji(), loop.now()}));
}

void RoomVC::happened(const Event& event) {
    if (!state) return;
    // `noteOwnChange` has noted the user's own change already, also one from another machine.
    const Person* changed = ActivityNotes::changed(event);
    if (changed != nullptr && changed->publicKey == state->publicKey) return;
    auto note = ActivityNotes::ofChange(event);
    if (!note) note = ActivityNotes::ofMembership(event);
    if (!note) return;
    pane->addActivity(std::move(*note));
    showTranscript();
}

void RoomVC::viewWillAppear() {
    pane->focusInput();
    kit.markRoomRead();
}

void RoomVC::showTranscript() { pane->showChat(*state, &state->room); }
