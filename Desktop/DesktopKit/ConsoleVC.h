#pragma once

#include "DesktopViews/ConsoleInputView.h"
#include "StateKit/Date.h"
#include "StateKit/SignalTarget.h"
#include "VimbleKit/Kit.h"

#include <functional>
#include <optional>
#include <string>

#include <QWidget>

class ConsoleOutputView;

/// The console: a log of everything that the session tells, above a line of command.
///
/// It writes from the moment it is made, also while it is hidden, and the log is its only record: the
/// banner, the session's state at the start, then traffic, session states and events in the order in which
/// they come. It does not echo what is typed, since the traffic shows it. Main thread only.
class ConsoleVC : public QWidget, public SignalTarget, private ConsoleInputViewDelegate {
    Q_OBJECT

public:
    /// @param kit      must outlive it
    /// @param version  of the program, for the banner
    /// @param clock    tells the time; the lines' tool-tips show when they arrived
    ConsoleVC(Kit& kit, const std::optional<std::string>& version, std::function<Date()> clock,
              QWidget* parent = nullptr);

    ConsoleOutputView& output() { return *_output; }
    ConsoleInputView& input() { return *_input; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void didSubmit(const std::string& text) override;
    void onlineChanged(Online online);

    Kit& kit;
    ConsoleOutputView* _output;
    ConsoleInputView* _input;
};
