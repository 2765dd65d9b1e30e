#include "TerminalKit/TerminalSession.h"

#include "Text/Text.h"

#include <exception>
#include <utility>
#include <variant>

namespace {

/// The kernel keeps so many bytes of a line that is typed at a terminal, and drops the rest silently
/// (N_TTY_BUF_SIZE, less the line's end).
constexpr std::size_t terminalLineBytes = 4095;

std::string lines(std::size_t count) { return std::to_string(count) + (count == 1 ? " line" : " lines"); }

}  // namespace

TerminalSession::TerminalSession(Kit& kit, MainLoop& loop, TerminalOutput& output, Outbox::Drain drain,
                                 Settings settings)
    : kit(kit),
      loop(loop),
      output(output),
      settings(std::move(settings)),
      printer(kit, output, this->settings.form),
      outbox(kit, loop, std::move(drain),
             {.sent = [this](const std::string& target,
                             const std::string& text) { printer.sent(target, text, this->loop.now()); },
              .sentCommand = [this](const std::string& text) { printer.sentCommand(text, this->loop.now()); },
              .refused = [this](const std::string& line, const std::string& reason) { notSent(line, reason); },
              .doubted =
                  [this](std::size_t count) {
                      this->output.note("the link was lost: the last " + lines(count) + " may not have arrived");
                  },
              .changed = [this] { outboxChanged(); }}),
      input({.line = [this](const std::string& line) { typed(line); },
             .refused = [this](std::string_view reason) { notSent("", std::string(reason)); }}) {}

void TerminalSession::start() {
    printer.start(settings.version);
    if (settings.isInteractive) {
        const auto& endpoint = kit.state().endpoint;
        output.note("connecting to " + Text::escaped(endpoint ? endpoint->displayString() : "no server") +
                    "; your key is " + kit.state().publicKey);
    }
    kit.observeEvents(*this, [](TerminalSession& session, const Event& event) { session.happened(event); });
    kit.connect();
}

// ---- typed lines

void TerminalSession::read(std::string_view bytes) {
    if (ending == Ending::none) input.feed(bytes);
}

void TerminalSession::typed(const std::string& line) {
    if (settings.isInteractive && line.size() >= terminalLineBytes) {
        notSent("", "a terminal cuts lines at " + std::to_string(terminalLineBytes) +
                        " bytes, and this one may have been longer");
        return;
    }
    TypedLine said = TypedLine::parse(line);
    if (said.kind != TypedLine::Kind::nothing) {
        outbox.add(std::move(said));
        tellOfWaiting();
    } else if (isKeyRefused && ending == Ending::none) {
        isKeyRefused = false;
        output.note("trying again");
        kit.connect();
    }
}

void TerminalSession::tellOfWaiting() {
    if (!settings.isInteractive || outbox.isReady() || outbox.waiting() == 0) return;
    if (!std::exchange(isWaitingTold, true)) output.note("there is no link yet; what you say waits for it");
}

void TerminalSession::notSent(std::string_view line, const std::string& reason) {
    ++refusedLines;
    output.note("not sent: " + reason);
    printer.notSent(line, reason);
}

// ---- events

void TerminalSession::happened(const Event& event) {
    if (std::holds_alternative<Events::AuthorizationFailed>(event)) {
        // Wait a turn: the engine reports more about the same failure first.
        loop.post([self = Weak<TerminalSession>(this)] {
            if (self) self->keyRefused();
        });
    } else if (std::holds_alternative<Events::Roster>(event)) {
        isWaitingTold = false;
    }
}

void TerminalSession::keyRefused() {
    if (ending == Ending::over) return;
    isKeyRefused = true;
    const std::string text =
        "the server does not know you: its administrator has to add your key, " + kit.state().publicKey;
    if (settings.isInteractive && ending == Ending::none) {
        output.note(text + "; press Enter to try again then");
        return;
    }
    output.note(text + "; start again then");
    finish();
}

void TerminalSession::trouble(std::string_view text) {
    if (ending != Ending::over) output.note("no link: " + Text::escaped(text));
}

// ---- the end

void TerminalSession::inputEnded() {
    if (ending != Ending::none) return;
    input.end();
    ending = Ending::flushing;
    patience = std::make_unique<Timer>(loop, flushPatience, [this] { finish(); });
    if (isKeyRefused)
        finishSoon();
    else
        outboxChanged();
}

void TerminalSession::interrupted() {
    if (ending == Ending::hurrying)
        finishSoon();
    else
        hurry();
}

void TerminalSession::outputClosed() {
    printer.stop();
    if (ending != Ending::hurrying) hurry();
}

/// Sends nothing more, and waits only until the lines that were sent are proved to have arrived.
void TerminalSession::hurry() {
    if (ending == Ending::over) return;
    ending = Ending::hurrying;
    outbox.stop();
    patience = std::make_unique<Timer>(loop, interruptPatience, [this] { finish(); });
    outboxChanged();
}

void TerminalSession::outboxChanged() {
    const bool isWanted = ending == Ending::none && outbox.waitingBytes() <= mostWaitingBytes;
    if (isWanted != std::exchange(isReading, isWanted)) output.setReading(isWanted);

    switch (ending) {
        case Ending::none:
        case Ending::over: return;
        case Ending::flushing:
            if (outbox.waiting() > 0 || outbox.unproved() > 0) return;
            if (outbox.awaitedAnswers() > 0) {
                if (!answers) answers = std::make_unique<Timer>(loop, answerPatience, [this] { finish(); });
                return;
            }
            break;
        case Ending::hurrying:
            if (outbox.unproved() > 0) return;
            break;
    }
    finishSoon();
}

void TerminalSession::finishSoon() {
    // Finish in a turn of its own: the engine or the outbox may be in the middle of something.
    loop.post([self = Weak<TerminalSession>(this)] {
        if (self) self->finish();
    });
}

std::string TerminalSession::account() const {
    const std::size_t unsent = outbox.waiting() + refusedLines;
    const std::size_t unknown = outbox.unproved() + outbox.doubtful();
    std::string text;
    if (unsent > 0) text = lines(unsent) + (unsent == 1 ? " was" : " were") + " not sent";
    if (unknown > 0) text += (unsent > 0 ? ", and " : "") + lines(unknown) + " may not have arrived";
    return text;
}

void TerminalSession::finish() {
    if (std::exchange(ending, Ending::over) == Ending::over) return;
    patience.reset();
    answers.reset();
    outbox.stop();

    int status = isKeyRefused ? 1 : 0;
    if (const std::string text = account(); !text.empty()) {
        output.note(text);
        status = 1;
    }
    try {
        kit.save();
    } catch (const std::exception& error) {
        output.note(std::string("the state could not be saved: ") + Text::escaped(error.what()));
        status = 1;
    }
    printer.stop();
    output.end(status);
}
