#include "DesktopKit/ChatterWindow.h"

#include "DesktopKit/ChatterVC.h"
#include "QtText/QtText.h"
#include "TranscriptKit/DisplayText.h"

#include <QCloseEvent>
#include <QUuid>

#include <utility>

ChatterWindow::ChatterWindow(Kit& kit, MainLoop& loop, const std::string& with,
                             std::function<void(ChatterWindow&)> closed)
    : _with(with),
      _identifier(fromQt(QUuid::createUuid().toString(QUuid::WithoutBraces))),
      closed(std::move(closed)),
      _chatterVC(new ChatterVC(kit, loop, with, this)) {
    resize(512, 384);
    setMinimumSize(256, 192);
    showTitle();
    setCentralWidget(_chatterVC);
    setFocusProxy(_chatterVC);
    kit.observeState(*this, [](ChatterWindow& self, const State& now) { self.stateChanged(now); });
}

void ChatterWindow::closeEvent(QCloseEvent* event) {
    event->accept();
    if (closed) closed(*this);
}

void ChatterWindow::stateChanged(const State& now) {
    const Person* person = now.people.find(_with);
    const LocalState state = person ? LocalState{person->displayName()} : LocalState{};
    if (state == _state) return;
    _state = state;
    showTitle();
}

void ChatterWindow::showTitle() {
    // Qt replaces "[*]" in a title by its mark of unsaved changes; a doubled one is shown as "[*]".
    Person partner;
    partner.publicKey = _with;
    partner.name = _state.withName;
    setWindowTitle(DisplayText::person(partner).replace(QStringLiteral("[*]"), QStringLiteral("[*][*]")));
}
