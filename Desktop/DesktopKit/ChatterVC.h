#pragma once

#include "DesktopViews/ChatterView.h"
#include "DesktopViews/InputView.h"
#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "TranscriptKit/TranscriptBuilder.h"
#include "VimbleKit/Event.h"
#include "VimbleKit/Kit.h"
#include "VimbleKit/State.h"

#include <optional>
#include <string>
#include <vector>

#include <QWidget>

class ChatPane;

/// The controller of a talk with one person: follows the session, and passes on what the user types.
///
/// It adds a note between the messages when the other person takes a new name or emoji; the notes live as
/// long as the controller. The talk is marked as read when it appears on the screen, and at no other time.
///
/// Main thread; the session and the loop must outlive it.
class ChatterVC : public QWidget, public SignalTarget, public InputViewDelegate {
    Q_OBJECT

public:
    /// @param with  the other's public key, under which the session keeps the talk
    ChatterVC(Kit& kit, MainLoop& loop, std::string with, QWidget* parent = nullptr);

    const std::string& with() const { return _with; }
    ChatterView& output();
    InputView& input();
    const std::vector<Activity>& activities() const;

    /// Always returns true, so that the input empties itself. A text that could not be sent is put back into
    /// it a moment later, so that it is not lost; the session reports other failures.
    bool didSubmit(const std::string& text) override;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void stateChanged(const State& now);
    void happened(const Event& event);
    void viewWillAppear();
    void showTranscript();

    Kit& kit;
    const std::string _with;
    ChatPane* pane;
    std::optional<State> state;  // the last one received
};
