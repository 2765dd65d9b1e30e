#include "DesktopKit/DesktopOptions.h"

#include "Text/Text.h"
#include "VimbleKit/Arguments.h"

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
    for (Arguments reader(arguments); reader.next();) {
        const std::string_view name = reader.name();
        if (!name.starts_with('-')) {
            if (!name.starts_with("vimble:"))
                throw ArgumentsError(Text::escaped(reader.text()) + " is no option and no \"vimble:\" link; " +
                                     "--help tells which options there are");
            options.urls.emplace_back(reader.text());
        } else if (name == "--data-dir") {
            options.dataDir = reader.value();
        } else if (name == "--secret-file") {
            options.secretFile = reader.value();
        } else if (name == "--server") {
            options.server = reader.givenValue();  // may be empty here; it is refused later, like other wrong servers
        } else if (name == "--help" || name == "-h") {
            options.wantsHelp = reader.flag();
        } else if (name == "--version") {
            options.wantsVersion = reader.flag();
        } else {
            throw reader.unknown();
        }
    }
    return options;
}
