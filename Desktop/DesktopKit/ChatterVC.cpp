#include "DesktopKit/ChatterVC.h"

#include "DesktopKit/ActivityNotes.h"
#include "DesktopKit/ChatPane.h"

#include <QVBoxLayout>

#include <utility>

ChatterVC::ChatterVC(Kit& kit, MainLoop& loop, std::string with, QWidget* parent)
    : QWidget(parent),
      kit(kit),
      _with(std::move(with)),
      pane(new ChatPane(kit, loop, ChatterView::Authors::emoji, _with, this)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(pane);
    setFocusProxy(pane);
    pane->input().setDelegate(this);

    kit.observeState(*this, [](ChatterVC& self, const State& now) { self.stateChanged(now); });
    kit.observeEvents(*this, [](ChatterVC& self, const Event& event) { self.happened(event); });
}

ChatterView& ChatterVC::output() { return pane->output(); }
InputView& ChatterVC::input() { return pane->input(); }
const std::vector<Activity>& ChatterVC::activities() const { return pane->activities(); }

bool ChatterVC::didSubmit(const std::string& text) {
    pane->submit(text);
    return true;
}

void ChatterVC::showEvent(QShowEvent* event) {
    // A window that comes back minimised gets this event too, but nobody sees it before it gets the next one.
    if (!window()->isMinimized()) viewWillAppear();
    QWidget::showEvent(event);
}

void ChatterVC::stateChanged(const State& now) {
    state = now;
    showTranscript();
}

void ChatterVC::happened(const Event& event) {
    const Person* person = ActivityNotes::changed(event);
    if (!person || person->publicKey != _with || !state) return;
    pane->addActivity(*ActivityNotes::ofChange(event));
    showTranscript();
}

void ChatterVC::viewWillAppear() {
    pane->focusInput();
    kit.markRead(_with);
}

void ChatterVC::showTranscript() { pane->showChat(*state, state->conversations.find(_with)); }
