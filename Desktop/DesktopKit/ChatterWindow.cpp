#include "DesktopKit/ChatterWindow.h"

#include "DesktopKit/ChatterVC.h"
#include "DesktopKit/WindowCascade.h"
#include "QtText/QtText.h"
#include "TranscriptKit/DisplayText.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QStyle>
#include <QUuid>

#include <algorithm>

namespace {

/// What all windows share.
struct Shared {
    std::vector<ChatterWindow*> windows;
    std::optional<QPoint> cascadePoint;
};

Shared& shared() {
    static Shared all;
    return all;
}

int titleBarHeight(const QWidget& window) { return window.style()->pixelMetric(QStyle::PM_TitleBarHeight); }

/// With its decoration, which is known only once the window has been shown: before that, a title bar of
/// the style's height stands for it.
QSize decoratedSize(const QWidget& window) {
    const QSize frame = window.frameGeometry().size();
    return frame == window.size() ? frame + QSize(0, titleBarHeight(window)) : frame;
}

}  // namespace

ChatterWindow::ChatterWindow(Kit& kit, MainLoop& loop, const std::string& with)
    : _with(with),
      _identifier(fromQt(QUuid::createUuid().toString(QUuid::WithoutBraces))),
      _chatterVC(new ChatterVC(kit, loop, with, this)) {
    setAttribute(Qt::WA_DeleteOnClose);
    resize(512, 384);
    shared().windows.push_back(this);
    setMinimumSize(256, 192);
    showTitle();
    place();
    setCentralWidget(_chatterVC);
    setFocusProxy(_chatterVC);
    kit.observeState(*this, [](ChatterWindow& self, const State& now) { self.stateChanged(now); });
}

ChatterWindow::~ChatterWindow() { leave(); }

ChatterWindow* ChatterWindow::existing(const std::string& with) {
    const auto& all = windows();
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto* window) { return window->with() == with; });
    return found == all.end() ? nullptr : *found;
}

const std::vector<ChatterWindow*>& ChatterWindow::windows() { return shared().windows; }

std::optional<QPoint> ChatterWindow::cascadePoint() { return shared().cascadePoint; }

void ChatterWindow::place() {
    const auto& all = windows();
    const bool areOthersSeen = std::any_of(all.begin(), all.end(), [this](const auto* other) {
        return other != this && other->isVisible() && !other->isMinimized();
    });
    const auto cascade = areOthersSeen ? cascadePoint() : std::nullopt;
    const QScreen* at = cascade ? QGuiApplication::screenAt(*cascade) : nullptr;
    if (!at) at = screen();
    const QRect area = at ? at->availableGeometry() : QRect();
    const QSize frame = decoratedSize(*this);
    const QPoint start = cascade ? *cascade : at ? WindowCascade::centred(frame, area) : pos();
    const auto [topLeft, next] = WindowCascade::step(start, frame, area, titleBarHeight(*this));
    move(topLeft);
    shared().cascadePoint = next;
}

void ChatterWindow::closeEvent(QCloseEvent* event) {
    // Its deletion comes at a later turn of the loop, and until then nobody should find it.
    leave();
    event->accept();
}

void ChatterWindow::stateChanged(const State& now) {
    const Person* person = now.people.find(_with);
    const LocalState state = person ? LocalState{person->displayName()} : LocalState{};
    if (state == _state) return;
    _state = state;
    showTitle();
}

void ChatterWindow::showTitle() {
    // Qt takes "[*]" in a title for the place of its mark of unsaved changes, and the doubled one for itself.
    Person partner;
    partner.publicKey = _with;
    partner.name = _state.withName;
    setWindowTitle(DisplayText::person(partner).replace(QStringLiteral("[*]"), QStringLiteral("[*][*]")));
}

void ChatterWindow::leave() {
    std::erase(shared().windows, this);
    if (shared().windows.empty()) shared().cascadePoint.reset();
}
