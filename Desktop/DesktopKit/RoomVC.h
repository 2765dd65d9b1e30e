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

/// The controller of the room that everybody shares: what `ChatterVC` is for a talk of two, but with the names
/// of the authors.
///
/// It adds a note between the messages when somebody takes a new name or emoji, is added or is removed; the
/// notes live as long as the controller. The room is marked as read when it appears on the screen, and when it
/// is hidden.
///
/// Main thread; the session and the loop must outlive it.
class RoomVC : public QWidget, public SignalTarget, public InputViewDelegate {
    Q_OBJECT

public:
    RoomVC(Kit& kit, MainLoop& loop, QWidget* parent = nullptr);

    ChatterView& output();
    InputView& input();
    const std::vector<Activity>& activities() const;

    /// Always returns true; a text that could not be sent is put back into the input a moment later.
    bool didSubmit(const std::string& text) override;

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void stateChanged(const State& now);
    void happened(const Event& event);
    void viewWillAppear();
    void showTranscript();

    void noteOwnChange(const State& now);

    Kit& kit;
    MainLoop& loop;
    ChatPane* pane;
    std::optional<State> state;  // the last one received
};
