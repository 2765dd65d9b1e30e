#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "VimbleKit/Kit.h"
#include "VimbleKit/State.h"

#include <optional>
#include <string>
#include <vector>

#include <QMainWindow>
#include <QPoint>

class ChatterVC;

/// The window of a talk with one person, titled with their name.
///
/// Made with `new` and owned by nobody: it stands in `windows` from its making until it is closed, and
/// then deletes itself. It makes no menu bar and does not show itself; it places itself among the other
/// windows of its kind, and whoever knows a better place moves it afterwards.
///
/// Main thread; the session and the loop must outlive it.
class ChatterWindow : public QMainWindow, public SignalTarget {
    Q_OBJECT

public:
    /// What of the session's state concerns the window itself.
    struct LocalState {
        std::string withName = "Anonymous";  // as it came

        bool operator==(const LocalState&) const = default;
    };

    /// @param with  the other's public key; need not be one that the session knows
    ChatterWindow(Kit& kit, MainLoop& loop, const std::string& with);
    ~ChatterWindow() override;

    /// The live window of the talk with that person; null if there is none.
    static ChatterWindow* existing(const std::string& with);
    /// All that live, in the order of their making.
    static const std::vector<ChatterWindow*>& windows();
    /// Where the next window goes while another one is on the screen.
    static std::optional<QPoint> cascadePoint();

    const std::string& with() const { return _with; }
    /// A name of its own for this window: a fresh UUID.
    const std::string& identifier() const { return _identifier; }
    ChatterVC& chatterVC() { return *_chatterVC; }
    const LocalState& state() const { return _state; }

    /// In the middle of the screen, or lower and further right than the last one if others can be seen.
    void place();

protected:
    /// Only runs for a close that nobody has refused before.
    void closeEvent(QCloseEvent* event) override;

private:
    void stateChanged(const State& now);
    void showTitle();
    void leave();

    const std::string _with;
    const std::string _identifier;
    ChatterVC* _chatterVC;
    LocalState _state;
};
