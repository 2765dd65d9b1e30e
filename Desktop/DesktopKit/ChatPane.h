#pragma once

#include "DesktopViews/ChatterView.h"
#include "DesktopViews/InputView.h"
#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "TranscriptKit/TranscriptBuilder.h"
#include "VimbleKit/Kit.h"

#include <string>
#include <string_view>
#include <vector>

#include <QWidget>

/// A transcript, a divider and an input below it, with what a talk of two and the room have in common: showing
/// a chat of a state, keeping the notes between its messages, and passing on what is typed.
///
/// Its owner is a controller, which says what chat is shown, adds the notes, and calls `submit` with what the
/// input submits. Main thread; the session and the loop must outlive it.
class ChatPane : public QWidget {
    Q_OBJECT

public:
    /// @param target  where `submit` sends to: a public key, or `Kit::roomKey`
    ChatPane(Kit& kit, MainLoop& loop, ChatterView::Authors authors, std::string target, QWidget* parent);

    ChatterView& output() { return *_output; }
    InputView& input() { return *_input; }
    /// The notes in order of arrival; they live as long as the pane.
    const std::vector<Activity>& activities() const { return _activities; }

    /// Shows that chat. Costs next to nothing if the state has changed nothing of it.
    ///
    /// Of a long chat that has never been on the screen, only the end is shown at first, and all of it after
    /// the end has been painted: a reader who opens a long chat looks at its end and must not wait for its
    /// beginning.
    /// @param chat  null if there is none yet
    void showChat(const State& state, const Chat* chat);
    /// Adds a note, which the next `showChat` shows.
    void addActivity(Activity activity) { _activities.push_back(std::move(activity)); }

    /// Sends a text. If it begins with "/", the rest is a command; a lone "/" does nothing. An error is only
    /// logged.
    ///
    /// The input empties itself when it has submitted a text. If the text could not be sent, since there is
    /// no link or an error occurred, it is put back at the loop's next turn, in front of what was typed
    /// meanwhile.
    void submit(const std::string& text);

    void focusInput();

protected:
    void changeEvent(QEvent* event) override;
    /// Passes keys from one part to the other: letters typed in the transcript go to the input, and page
    /// keys in the input scroll the transcript.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void showAll();
    bool pass(const std::string& text);
    bool passCommand(std::string_view command);
    void putBack(const std::string& text);
    void fitInput();
    std::string nameOf(const std::string& author) const;

    Kit& kit;
    MainLoop& loop;
    std::string target;
    TranscriptBuilder builder;
    std::vector<Activity> _activities;
    People people;               // as last shown
    Chat chat;                   // likewise; empty if there is none
    bool isWhole = false;        // all of the chat is shown
    std::size_t firstShown = 0;  // index of the first message shown, until all are
    bool isWholeAsked = false;   // `showAll` is posted
    ChatterView* _output;
    QWidget* divider;
    InputView* _input;
};
