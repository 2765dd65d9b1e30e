#include "DesktopKit/DesktopOptions.h"

#include "VimbleKit/Text.h"

#include <cstddef>

namespace {

constexpr std::string_view helpText = R"(Usage: vimble [OPTION]... [LINK]...

Opens Vimble, or brings it forward if it runs already for the same data. So does a link that begins with
"vimble:".

  --server TEXT       the server: "localhost", a host name, or a URL; the last one if left out
  --data-dir DIR      keep what is remembered in DIR
  --secret-file FILE  keep your secret key in FILE, sealed with a passphrase, instead of the keyring
  --help, --version   write this, or the version, and end

The passphrase is asked for in a window, or taken from VIMBLE_SECRET_PASSPHRASE.

Exit status: 0; 1 if the program could not start; 2 for wrong options.
)";

}  // namespace

std::string_view DesktopOptions::help() { return helpText; }

DesktopOptions DesktopOptions::parse(const std::vector<std::string_view>& arguments) {
    DesktopOptions options;
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const std::string_view argument = arguments[at];
        if (!argument.starts_with('-')) {
            if (!argument.starts_with("vimble:"))
                throw DesktopOptionsError(Text::escaped(argument) + " is no option and no \"vimble:\" link; " +
                                          "--help tells which options there are");
            options.urls.emplace_back(argument);
            continue;
        }
        const std::size_t equals = argument.find('=');
        const std::string_view name = argument.substr(0, equals);
        const auto givenValue = [&]() -> std::string {
            if (equals != std::string_view::npos) return std::string(argument.substr(equals + 1));
            if (at + 1 < arguments.size()) return std::string(arguments[++at]);
            throw DesktopOptionsError(std::string(name) + " needs a value");
        };
        const auto value = [&] {
            std::string text = givenValue();
            if (text.empty()) throw DesktopOptionsError(std::string(name) + " needs a value");
            return text;
        };
        const auto flag = [&](bool& option) {
            if (equals != std::string_view::npos) throw DesktopOptionsError(std::string(name) + " takes no value");
            option = true;
        };
        if (name == "--data-dir")
            options.dataDir = value();
        else if (name == "--secret-file")
            options.secretFile = value();
        else if (name == "--server")
            options.server = givenValue();  // an empty one is no server, as any other nonsense
        else if (name == "--help" || name == "-h")
            flag(options.wantsHelp);
        else if (name == "--version")
            flag(options.wantsVersion);
        else
            throw DesktopOptionsError("there is no option " + Text::escaped(argument) +
                                      "; --help tells which there are");
    }
    return options;
}
