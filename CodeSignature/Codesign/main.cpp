#include "Base/FileDescriptor.h"
#include "CodeSignature/CodeSignature.h"
#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/EscapedText.h"
#include "CodeSignature/SigningIdentity.h"

#include <array>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <termios.h>
#include <vector>

namespace {

constexpr int refusedStatus = 1;
constexpr int usageStatus = 2;

constexpr std::string_view usage =
    "Usage: vimble-codesign --sign IDENTITY.pem BUNDLE\n"
    "       vimble-codesign --adhoc BUNDLE\n"
    "       vimble-codesign -d [--verbose=N] BUNDLE\n"
    "       vimble-codesign --verify BUNDLE\n"
    "\n"
    "  --sign IDENTITY.pem  seals the bundle and signs the seal. The file holds a private key and its\n"
    "                       certificates, the key's own first, one signed by itself last\n"
    "  --adhoc              seals the bundle without a signature\n"
    "  -d, --display        says who has signed the bundle, if its seal holds\n"
    "  --verify             says whether its seal holds\n"
    "  --verbose=N          accepted; there is one degree\n"
    "  --help, --version\n"
    "\n"
    "The exit status is 0; 1 if a seal is refused or could not be made; 2 for wrong options. One line on\n"
    "standard error says why.\n";

enum class Action { sign, adhoc, display, verify };

struct Options {
    std::optional<Action> action;
    std::filesystem::path identity;
    std::optional<std::filesystem::path> bundle;
};

/// What is wrong with the words on the command line.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

bool isVerbosity(std::string_view word) {
    constexpr std::string_view name = "--verbose=";
    return word == "--verbose" ||
           (word.starts_with(name) && word.size() == name.size() + 1 && word.back() >= '0' && word.back() <= '9');
}

Options parsed(const std::vector<std::string_view>& words) {
    Options options;
    bool isPlain = false;
    const auto choose = [&](Action action) {
        if (options.action) throw UsageError("one thing at a time");
        options.action = action;
    };
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string_view word = words[i];
        if (isPlain || !word.starts_with('-')) {
            if (options.bundle) throw UsageError("one bundle at a time");
            options.bundle = word;
        } else if (word == "--") {
            isPlain = true;
        } else if (word == "--sign") {
            choose(Action::sign);
            if (++i == words.size()) throw UsageError("--sign needs an identity");
            options.identity = words[i];
        } else if (word == "--adhoc") {
            choose(Action::adhoc);
        } else if (word == "-d" || word == "--display") {
            choose(Action::display);
        } else if (word == "--verify") {
            choose(Action::verify);
        } else if (!isVerbosity(word)) {
            throw UsageError("there is no option " + escapedText(word));
        }
    }
    if (!options.action) throw UsageError("nothing to do");
    if (!options.bundle || options.bundle->empty()) throw UsageError("which bundle?");
    return options;
}

/// The controlling terminal, which does not show what is typed for as long as this object lives.
///
/// The library's own prompt hides typing too, but only after it has asked: a passphrase that is typed ahead
/// would be shown.
class QuietTerminal {
public:
    QuietTerminal() : file(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        // Without a terminal, the library would read standard input instead.
        if (!file || ::tcgetattr(file.get(), &before) != 0)
            throw CodeSignatureError(
                CodeSignatureErrorCode::badIdentity,
                "the identity's key is encrypted, and there is no terminal to ask for its passphrase");
        termios quiet = before;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(file.get(), TCSAFLUSH, &quiet);
    }
    ~QuietTerminal() { ::tcsetattr(file.get(), TCSADRAIN, &before); }
    QuietTerminal(const QuietTerminal&) = delete;
    QuietTerminal& operator=(const QuietTerminal&) = delete;

private:
    const FileDescriptor file;
    termios before{};
};

std::optional<std::string> askPassphrase() {
    const QuietTerminal quiet;
    std::array<char, SigningIdentity::maximumPassphraseBytes + 1> text{};
    std::optional<std::string> passphrase;
    // The library holds signals back until it has restored the terminal.
    if (EVP_read_pw_string(text.data(), static_cast<int>(text.size()), "Passphrase of the identity: ", 0) == 0)
        passphrase = text.data();
    OPENSSL_cleanse(text.data(), text.size());
    return passphrase;
}

/// @return false if not all of it could be written to standard output
bool print(std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

int complain(const std::string& why, int status) {
    static_cast<void>(std::fprintf(stderr, "vimble-codesign: %s\n", why.c_str()));
    return status;
}

std::string verdict(const CodeSignature::Profile& profile) {
    if (!profile.signer) return "the seal holds; nobody has signed it\n";
    return "the seal holds; signed by " + profile.signer->chain.front().text() + '\n';
}

/// @return what goes to standard output
std::string run(const Options& options) {
    const std::filesystem::path& bundle = *options.bundle;
    switch (*options.action) {
        case Action::sign: {
            const SigningIdentity identity = SigningIdentity::load(options.identity, askPassphrase);
            CodeSignature::seal(bundle, &identity);
            return {};
        }
        case Action::adhoc: CodeSignature::seal(bundle, nullptr); return {};
        case Action::display: return CodeSignature::description(bundle, CodeSignature::verify(bundle));
        case Action::verify: break;
    }
    return verdict(CodeSignature::verify(bundle));
}

}  // namespace

int main(int count, char** arguments) {
    // Load no configuration: an environment variable could name one that loads code into this program, which
    // decides about trust.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
    const std::vector<std::string_view> words(arguments + (count > 0 ? 1 : 0), arguments + count);
    std::string output;
    try {
        if (words.size() == 1 && (words[0] == "--help" || words[0] == "-h"))
            output = usage;
        else if (words.size() == 1 && words[0] == "--version")
            output = "vimble-codesign " VIMBLE_VERSION "\n";
        else
            output = run(parsed(words));
    } catch (const UsageError& error) {
        return complain(std::string(error.what()) + "; --help says how it goes", usageStatus);
    } catch (const std::exception& error) {
        return complain(error.what(), refusedStatus);
    }
    if (!print(output)) return complain("standard output can't be written", refusedStatus);
    return 0;
}
