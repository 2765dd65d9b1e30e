#include "TerminalKit/TerminalOptions.h"

#include "VimbleKit/Arguments.h"

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
    for (Arguments reader(arguments); reader.next();) {
        const std::string_view name = reader.name();
        if (name == "--data-dir")
            options.dataDir = reader.value();
        else if (name == "--secret-file")
            options.secretFile = reader.value();
        else if (name == "--server")
            options.server = reader.givenValue();  // may be empty, which the parser of server texts refuses
        else if (name == "--public-key")
            options.wantsPublicKey = reader.flag();
        else if (name == "--json")
            options.isJson = reader.flag();
        else if (name == "--debug")
            options.isDebug = reader.flag();
        else if (name == "--help" || name == "-h")
            options.wantsHelp = reader.flag();
        else if (name == "--version")
            options.wantsVersion = reader.flag();
        else
            throw reader.unknown();
    }
    return options;
}
