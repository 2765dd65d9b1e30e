#include "TerminalShell/PassphrasePrompt.h"

#include "Base/FileDescriptor.h"
#include "PlatformCore/EnvironmentPassphrase.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace {

volatile std::sig_atomic_t pendingSignal = 0;

void noteSignal(int signal) { pendingSignal = signal; }

/// Holds back signals that would end or stop the program, until the terminal's echo has been restored.
class SignalHold {
public:
    SignalHold() {
        pendingSignal = 0;
        sigset_t stop;
        sigemptyset(&stop);
        sigaddset(&stop, SIGTSTP);
        sigprocmask(SIG_BLOCK, &stop, &maskBefore);
        struct sigaction action {};
        action.sa_handler = noteSignal;
        sigemptyset(&action.sa_mask);
        for (std::size_t i = 0; i < held.size(); ++i) {
            sigaction(held[i], nullptr, &before[i]);
            if (before[i].sa_handler != SIG_IGN) sigaction(held[i], &action, nullptr);
        }
    }
    ~SignalHold() {
        for (std::size_t i = 0; i < held.size(); ++i) sigaction(held[i], &before[i], nullptr);
        sigprocmask(SIG_SETMASK, &maskBefore, nullptr);
        if (pendingSignal != 0) raise(pendingSignal);
    }
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;

private:
    static constexpr std::array held{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    std::array<struct sigaction, held.size()> before;
    sigset_t maskBefore;
};

/// The controlling terminal, with its echo off while this object lives.
class QuietTerminal {
public:
    QuietTerminal() : file(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
        if (!file || tcgetattr(file.get(), &before) != 0)
            throw PassphrasePromptError(
                "there is no terminal to ask for the passphrase; VIMBLE_SECRET_PASSPHRASE may hold it");
        termios quiet = before;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ICANON | ISIG;
        tcsetattr(file.get(), TCSAFLUSH, &quiet);
    }
    ~QuietTerminal() { tcsetattr(file.get(), TCSADRAIN, &before); }
    QuietTerminal(const QuietTerminal&) = delete;
    QuietTerminal& operator=(const QuietTerminal&) = delete;

    void say(std::string_view text) const { static_cast<void>(!write(file.get(), text.data(), text.size())); }

    Passphrase line(std::string_view prompt) const {
        say(prompt);
        std::string text;
        // Reserve room for the longest passphrase: growing would leave copies in memory.
        text.reserve(PassphrasePrompt::maximumBytes + 1);
        const struct Wipe {
            ~Wipe() { Nacl::wipe(text); }
            std::string& text;
        } wipe{text};
        while (true) {
            char c = 0;
            const ssize_t count = read(file.get(), &c, 1);
            if (count < 0 && errno == EINTR && pendingSignal == 0) continue;
            if (count <= 0) {
                say("\n");
                throw PassphrasePromptError("no passphrase was given");
            }
            if (c == '\n') break;
            if (text.size() == PassphrasePrompt::maximumBytes) {
                say("\n");
                throw PassphrasePromptError("the passphrase is longer than 1024 bytes");
            }
            text += c;
        }
        say("\n");
        return Passphrase(std::move(text));
    }

private:
    const FileDescriptor file;
    termios before{};
};

bool areSame(const Passphrase& a, const Passphrase& b) {
    // This need not take constant time: the same person has just typed both.
    return std::equal(a.view().begin(), a.view().end(), b.view().begin(), b.view().end());
}

}  // namespace

PassphrasePrompt::PassphrasePrompt() : given(EnvironmentPassphrase::take()) {}

Passphrase PassphrasePrompt::ask(Purpose purpose) {
    if (given) {
        Passphrase result = std::move(*given);
        given.reset();
        return result;
    }
    const SignalHold hold;
    const QuietTerminal terminal;
    if (purpose == Purpose::open) return terminal.line("Passphrase: ");
    terminal.say("Your secret key is going to be kept in a file, sealed with a passphrase that you choose now.\n");
    while (true) {
        Passphrase chosen = terminal.line("New passphrase: ");
        if (chosen.isEmpty()) {
            terminal.say("It can't be empty.\n");
            continue;
        }
        if (areSame(chosen, terminal.line("Once more: "))) return chosen;
        terminal.say("The two differ.\n");
    }
}
