#pragma once

#include "DesktopKit/ChatterWindow.h"
#include "StateKit/MainLoop.h"
#include "VimbleKit/Kit.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QPoint>
#include <QPointer>

/// The windows of talks: their owner, who finds the one of a person and places a new one among the others.
///
/// A window is listed here from its making until it is closed. It is destroyed at a later turn of the loop, since
/// closing runs inside the window's own code; in between no function here returns it.
///
/// Main thread; the session and the loop must outlive it. The windows die with it.
class ChatterWindows {
public:
    ChatterWindows(Kit& kit, MainLoop& loop);
    ~ChatterWindows();
    ChatterWindows(const ChatterWindows&) = delete;
    ChatterWindows& operator=(const ChatterWindows&) = delete;

    /// A new window, placed but not shown: whoever knows a better place moves it afterwards.
    /// @param with  the other's public key; may be one that has a window
    ChatterWindow& make(const std::string& with);

    /// The live window of the talk with that person, the first of several; null if there is none.
    ChatterWindow* existing(const std::string& with) const;
    /// All open windows, in the order in which they were made.
    std::vector<ChatterWindow*> windows() const;
    /// Where the next window goes while another one is on the screen.
    std::optional<QPoint> cascadePoint() const { return _cascadePoint; }

private:
    void place(ChatterWindow& window);
    void leave(ChatterWindow& window);

    Kit& kit;
    MainLoop& loop;
    std::vector<std::unique_ptr<ChatterWindow>> live;
    std::vector<QPointer<ChatterWindow>> leaving;  // closed ones, null once the toolkit has destroyed them
    std::optional<QPoint> _cascadePoint;
};
