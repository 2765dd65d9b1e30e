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

/// A transcript, a divider and an input below it, with what a talk of two and the room do alike: showing
/// a chat of a state, keeping the notes between its messages, and passing on what is typed.
///
/// Its owner is a controller, which says which chat is shown, which notes there are, and hands back what
/// the input submits. Main thread; the session and the loop must outlive it.
class TalkPane : public QWidget {
    Q_OBJECT

public:
    /// @param target  whom `submit` sends to: a public key, or `Kit::roomKey`
    TalkPane(Kit& kit, MainLoop& loop, ChatterView::Authors authors, std::string target, QWidget* parent);

    ChatterView& output() { return *_output; }
    InputView& input() { return *_input; }
    /// Notes in order of arrival; they live as long as the pane.
    const std::vector<Activity>& activities() const { return _activities; }

    /// Shows that chat; costs next to nothing for a state that changes nothing of it.
    ///
    /// Of a long chat that has never been on the screen, the end alone is shown at first, and all of it as
    /// soon as that has been painted: a reader who opens a chat of years looks at its end, and is not to
    /// wait for its beginning.
    /// @param chat  null where there is none yet
    void showChat(const State& state, const Chat* chat);
    /// Shown from the next `showChat` on.
    void addActivity(Activity activity) { _activities.push_back(std::move(activity)); }

    /// Sends a text; one that begins with "/" is a command without it, and a lone "/" is nothing. What
    /// goes wrong is logged and nothing more.
    ///
    /// The input empties itself when it has handed a text on. One that could not go, since there is no
    /// link or something went wrong, is put back at the loop's next turn, before anything that was typed
    /// meanwhile.
    void submit(const std::string& text);

    void focusInput();

protected:
    void changeEvent(QEvent* event) override;
    /// Keys that the one part gets and the other one answers: letters typed at the transcript go to the
    /// input, and page keys in the input scroll the transcript.
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
    Chat chat;                   // likewise; empty where there is none
    bool isWhole = false;        // all of the chat is shown
    std::size_t firstShown = 0;  // of the messages, until all are
    bool isWholeAsked = false;   // at the loop's next turn it will be
    ChatterView* _output;
    QWidget* divider;
    InputView* _input;
};
