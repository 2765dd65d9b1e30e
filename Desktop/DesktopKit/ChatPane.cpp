#include "DesktopKit/ChatPane.h"

#include "DesktopViews/Look.h"
#include "QtText/QtText.h"
#include "StateKit/Log.h"
#include "TranscriptKit/DisplayText.h"
#include "TweetNacl/Nacl.h"
#include "VimbleKit/SocketError.h"

#include <QCoreApplication>
#include <QEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QPointer>
#include <QTextCursor>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

const Log paneLog("zorvane.Vimble", "ChatPane");

/// The line between transcript and input, in the palette's present colour.
class Divider : public QWidget {
public:
    explicit Divider(QWidget* parent) : QWidget(parent) { setFixedHeight(1); }

protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(rect(), Look::divider(palette())); }
};

constexpr double inputHeight = 40;  // points

// For its first painting a long chat shows its last `firstMessages`: a screen holds some tens of rows, and
// copying these takes no noticeable time.
constexpr std::size_t firstMessages = 300;
constexpr std::size_t longChat = 2000;

/// The messages of a chat from index `first` on, as a chat of its own.
Chat endOf(const Chat& chat, std::size_t first) {
    Chat end;
    for (std::size_t i = first; i < chat.messages.size(); ++i) end.messages.push_back(chat.messages[i]);
    return end;
}

/// Whether the key writes text, and does not move, copy or choose a menu.
bool writes(const QKeyEvent& key) {
    if (key.matches(QKeySequence::Paste)) return true;
    constexpr auto commanding = Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
    const QString text = key.text();
    // AltGr is a modifier of its own, and a character that needs it is text.
    return !text.isEmpty() && text.at(0).isPrint() && !(key.modifiers() & commanding);
}

bool turnsPage(const QKeyEvent& key) {
    return (key.key() == Qt::Key_PageUp || key.key() == Qt::Key_PageDown) && !(key.modifiers() & ~Qt::KeypadModifier);
}

}  // namespace

ChatPane::ChatPane(Kit& kit, MainLoop& loop, ChatterView::Authors authors, std::string target, QWidget* parent)
    : QWidget(parent),
      kit(kit),
      loop(loop),
      target(std::move(target)),
      _output(new ChatterView(authors, this)),
      divider(new Divider(this)),
      _input(new InputView(this)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(_output, 1);
    layout->addWidget(divider);
    layout->addWidget(_input);
    fitInput();

    _output->setAccessibleName(QStringLiteral("Transcript"));
    _output->setClock([&loop] { return loop.now(); });
    _output->setNameOf([this](const std::string& author) { return nameOf(author); });
    setTabOrder(&_input->textView(), _output);
    setFocusProxy(&_input->textView());
    _output->installEventFilter(this);
    _output->viewport()->installEventFilter(this);
    _input->textView().installEventFilter(this);
}

void ChatPane::showChat(const State& state, const Chat* chat) {
    _input->setOffline(state.connection != Connection::online);
    const bool areNamesNew = !(people == state.people);
    people = state.people;
    this->chat = chat != nullptr ? *chat : Chat();
    if (this->chat.messages.size() <= longChat) isWhole = true;
    if (isWhole) {
        _output->setTranscript(builder.build(chat, people, _activities));
    } else {
        // Begin with the same message every time, so that new messages are additions at the end, which the view
        // follows.
        const std::size_t count = this->chat.messages.size();
        if (firstShown == 0 || firstShown > count) firstShown = count - firstMessages;
        const Chat end = endOf(this->chat, firstShown);
        _output->setTranscript(buildTranscript(&end, people, _activities));
    }
    if (areNamesNew) _output->namesChanged();
}

void ChatPane::showAll() {
    isWhole = true;
    _output->setTranscript(builder.build(&chat, people, _activities));
}

void ChatPane::submit(const std::string& text) {
    bool isGone = false;
    try {
        isGone = pass(text);
    } catch (const SocketError& error) {
        paneLog.error(std::string("Failed to send: ") + error.what());
    } catch (const NaclError& error) {
        paneLog.error(std::string("Failed to send: ") + error.what());
    }
    if (isGone) return;
    // The input empties itself once this returns, so put the text back after that.
    loop.post([pane = QPointer<ChatPane>(this), text] {
        if (pane) pane->putBack(text);
    });
}

/// @return false if the text was not sent
bool ChatPane::pass(const std::string& text) {
    if (text.starts_with('/')) return passCommand(std::string_view(text).substr(1));
    const bool canSend = kit.canSend();
    kit.send(text, target);
    return canSend;
}

bool ChatPane::passCommand(std::string_view command) {
    if (command.empty()) return true;
    // A new name or emoji goes to everybody, so it needs the server's list, as a text does.
    const std::string_view word = command.substr(0, command.find(' '));
    const bool isForAll = word == "name" || word == "emoji";
    const bool isGone = isForAll ? kit.canSend() : kit.socket() && kit.socket()->isConnected();
    kit.command(command);
    return isGone;
}

void ChatPane::putBack(const std::string& text) {
    if (text.empty()) return;
    InputTextView& editor = _input->textView();
    const bool wasEmpty = editor.document()->isEmpty();
    QTextCursor cursor(editor.document());
    cursor.insertText(toQt(wasEmpty ? text : text + "\n"));
    if (wasEmpty) editor.moveCursor(QTextCursor::End);
}

void ChatPane::focusInput() { _input->textView().setFocus(Qt::OtherFocusReason); }

void ChatPane::changeEvent(QEvent* event) {
    if (event->type() == QEvent::FontChange) fitInput();
    QWidget::changeEvent(event);
}

bool ChatPane::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Paint && watched == _output->viewport() && !isWhole && !isWholeAsked) {
        isWholeAsked = true;
        QMetaObject::invokeMethod(this, &ChatPane::showAll, Qt::QueuedConnection);
    }
    if (event->type() != QEvent::KeyPress) return QWidget::eventFilter(watched, event);
    const auto& key = static_cast<const QKeyEvent&>(*event);
    if (watched == _output && writes(key)) {
        focusInput();
        QCoreApplication::sendEvent(&_input->textView(), event);
        return true;
    }
    if (watched == &_input->textView() && turnsPage(key)) {
        QCoreApplication::sendEvent(_output, event);
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

/// Makes the input high enough for one line of text at any size of the desktop's font.
void ChatPane::fitInput() {
    _input->setFixedHeight(static_cast<int>(std::lround(std::max(inputHeight, Look::scaled(inputHeight)))));
}

std::string ChatPane::nameOf(const std::string& author) const {
    const Person* person = people.find(author);
    return person ? fromQt(DisplayText::person(*person)) : "Anonymous";
}
