#include "DesktopKit/ChatterWindows.h"

#include "DesktopKit/WindowCascade.h"

#include <QGuiApplication>
#include <QScreen>
#include <QStyle>

#include <algorithm>

namespace {

int titleBarHeight(const QWidget& window) { return window.style()->pixelMetric(QStyle::PM_TitleBarHeight); }

/// The window's size with its decoration. That is known only once the window has been shown, so until then a title bar
/// of the style's height is assumed.
QSize decoratedSize(const QWidget& window) {
    const QSize frame = window.frameGeometry().size();
    return frame == window.size() ? frame + QSize(0, titleBarHeight(window)) : frame;
}

}  // namespace

ChatterWindows::ChatterWindows(Kit& kit, MainLoop& loop) : kit(kit), loop(loop) {}

ChatterWindows::~ChatterWindows() {
    // Delete closed windows now: the loop may not turn again before the session is destroyed, which they use.
    for (const auto& window : leaving) delete window.data();
}

ChatterWindow& ChatterWindows::make(const std::string& with) {
    live.push_back(
        std::make_unique<ChatterWindow>(kit, loop, with, [this](ChatterWindow& closing) { leave(closing); }));
    ChatterWindow& window = *live.back();
    place(window);
    return window;
}

ChatterWindow* ChatterWindows::existing(const std::string& with) const {
    const auto found = std::find_if(live.begin(), live.end(), [&](const auto& each) { return each->with() == with; });
    return found == live.end() ? nullptr : found->get();
}

std::vector<ChatterWindow*> ChatterWindows::windows() const {
    std::vector<ChatterWindow*> all;
    for (const auto& window : live) all.push_back(window.get());
    return all;
}

void ChatterWindows::place(ChatterWindow& window) {
    const bool areOthersSeen = std::any_of(live.begin(), live.end(), [&](const auto& other) {
        return other.get() != &window && other->isVisible() && !other->isMinimized();
    });
    const auto cascade = areOthersSeen ? cascadePoint() : std::nullopt;
    const QScreen* at = cascade ? QGuiApplication::screenAt(*cascade) : nullptr;
    if (!at) at = window.screen();
    const QRect area = at ? at->availableGeometry() : QRect();
    const QSize frame = decoratedSize(window);
    const QPoint start = cascade ? *cascade : at ? WindowCascade::centred(frame, area) : window.pos();
    const auto [topLeft, next] = WindowCascade::step(start, frame, area, titleBarHeight(window));
    window.move(topLeft);
    _cascadePoint = next;
}

void ChatterWindows::leave(ChatterWindow& window) {
    const auto found = std::find_if(live.begin(), live.end(), [&](const auto& each) { return each.get() == &window; });
    if (found == live.end()) return;
    std::erase(leaving, nullptr);
    leaving.emplace_back(found->get());
    found->release()->deleteLater();
    live.erase(found);
    if (live.empty()) _cascadePoint.reset();
}
