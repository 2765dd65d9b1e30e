#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "VimbleKit/Kit.h"
#include "VimbleKit/State.h"

#include <functional>
#include <string>

#include <QMainWindow>

class ChatterVC;

/// The window of a talk with one person, titled with their name.
///
/// It makes no menu bar, does not place itself and does not show itself. The program's windows of this kind
/// belong to a `ChatterWindows`, which is told when one is closed.
///
/// Main thread; the session and the loop must outlive it.
class ChatterWindow : public QMainWindow, public SignalTarget {
    Q_OBJECT

public:
    /// The part of the session's state that the window itself shows.
    struct LocalState {
        std::string withName = "Anonymous";  // as it came

        bool operator==(const LocalState&) const = default;
    };

    /// @param with  the other's public key; need not be one that the session knows
    /// @param closed  called when the user or the desktop closes the window, inside its own handler: it must not
    ///        destroy the window there and then. May be empty
    ChatterWindow(Kit& kit, MainLoop& loop, const std::string& with, std::function<void(ChatterWindow&)> closed = {});

    const std::string& with() const { return _with; }
    /// A name of its own for this window: a fresh UUID.
    const std::string& identifier() const { return _identifier; }
    ChatterVC& chatterVC() { return *_chatterVC; }
    const LocalState& state() const { return _state; }

protected:
    /// Only runs if no event filter has refused the close.
    void closeEvent(QCloseEvent* event) override;

private:
    void stateChanged(const State& now);
    void showTitle();

    const std::string _with;
    const std::string _identifier;
    const std::function<void(ChatterWindow&)> closed;
    ChatterVC* _chatterVC;
    LocalState _state;
};
