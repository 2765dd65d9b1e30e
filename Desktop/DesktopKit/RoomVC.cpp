#include "DesktopKit/RoomVC.h"

#include "DesktopKit/ActivityNotes.h"
#include "DesktopKit/TalkPane.h"

#include <QVBoxLayout>

#include <utility>

RoomVC::RoomVC(Kit& kit, MainLoop& loop, QWidget* parent)
    : QWidget(parent), kit(kit), pane(new TalkPane(kit, loop, ChatterView::Authors::named, Kit::roomKey, this)) {
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
    // A window that comes back minimised is told to be shown too; nobody sees it before it is told again.
    if (!window()->isMinimized()) viewWillAppear();
    QWidget::showEvent(event);
}

void RoomVC::hideEvent(QHideEvent* event) {
    // What came while the room was on the screen has been in view.
    if (!event->spontaneous()) kit.markRoomRead();
    QWidget::hideEvent(event);
}

void RoomVC::stateChanged(const State& now) {
    state = now;
    showTranscript();
}

void RoomVC::happened(const Event& event) {
    if (!state) return;
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
