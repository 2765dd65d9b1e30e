#include "TerminalKit/TerminalOptions.h"

#include "VimbleKit/Text.h"

#include <cstddef>

namespace {

constexpr std::string_view helpText = R"(Usage: vimble-terminal [OPTION]...

Chats in a terminal. Standard output carries what happens, a line each; standard error what goes wrong.

  --server TEXT       the server: "localhost", a host name, or a URL; the last one if left out
  --data-dir DIR      keep what is remembered in DIR
  --secret-file FILE  keep your secret key in FILE, sealed with a passphrase, instead of the keyring
  --public-key        write your public key, which a server's administrator needs, and end
  --json              write an object of JSON a line
  --debug             write the engine's debug lines to standard error
  --help, --version   write this, or the version, and end

What you type:

  text          goes to the room. A blank in front lets it begin with "/" or "@"
  @WHO text     goes to one person. WHO is a key, six or more first characters of one, or a name;
                @"A NAME" text says exactly where the name ends
  /name NAME    tells everybody your name
  /emoji EMOJI  tells everybody your emoji
  /TEXT         is a command for the server, such as /help

What you say without a link waits for one. At the end of input (Ctrl-D) it is handed over, for 30
seconds at most, and the program ends. A line is UTF-8 and 64 KiB long at most, or 4094 bytes where
it is typed at a terminal.

In what is written, characters that could steer the terminal stand as \n, \u{202e} and so on, and a
backslash is doubled.

The passphrase is asked for on the terminal, or taken from VIMBLE_SECRET_PASSPHRASE.

Exit status: 0; 1 if something was not sent or the program could not start; 2 for wrong options.
)";

}  // namespace

std::string_view TerminalOptions::help() { return helpText; }

TerminalOptions TerminalOptions::parse(const std::vector<std::string_view>& arguments) {
    TerminalOptions options;
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const std::string_view argument = arguments[at];
        const std::size_t equals = argument.find('=');
        const std::string_view name = argument.substr(0, equals);
        const auto givenValue = [&]() -> std::string {
            if (equals != std::string_view::npos) return std::string(argument.substr(equals + 1));
            if (at + 1 < arguments.size()) return std::string(arguments[++at]);
            throw TerminalOptionsError(std::string(name) + " needs a value");
        };
        const auto value = [&] {
            std::string text = givenValue();
            if (text.empty()) throw TerminalOptionsError(std::string(name) + " needs a value");
            return text;
        };
        const auto flag = [&](bool& option) {
            if (equals != std::string_view::npos) throw TerminalOptionsError(std::string(name) + " takes no value");
            option = true;
        };
        if (name == "--data-dir")
            options.dataDir = value();
        else if (name == "--secret-file")
            options.secretFile = value();
        else if (name == "--server")
            options.server = givenValue();  // an empty one is no server, as any other nonsense
        else if (name == "--public-key")
            flag(options.wantsPublicKey);
        else if (name == "--json")
            flag(options.isJson);
        else if (name == "--debug")
            flag(options.isDebug);
        else if (name == "--help" || name == "-h")
            flag(options.wantsHelp);
        else if (name == "--version")
            flag(options.wantsVersion);
        else
            throw TerminalOptionsError("there is no option " + Text::escaped(argument) +
                                       "; --help tells which there are");
    }
    return options;
}
