#include "RelayShell/CommandLine.h"

#include <cmath>
#include <cstdlib>
#include <functional>
#include <utility>

namespace {

constexpr double mostNumber = 1e15;

double positiveNumber(const std::string& option, const std::string& text) {
    const bool looksRight = !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos;
    char* end = nullptr;
    const double value = looksRight ? std::strtod(text.c_str(), &end) : 0;
    if (!looksRight || *end != '\0' || !(value > 0) || value > mostNumber)
        throw UsageError(option + " needs a number above 0, not \"" + text + "\"");
    return value;
}

template <class Number>
void setNumber(Number& field, const std::string& option, const std::string& text) {
    const double value = positiveNumber(option, text);
    field = static_cast<Number>(value);
    if (field <= 0 || (static_cast<double>(field) != value && !std::is_floating_point_v<Number>))
        throw UsageError(option + " needs a whole number above 0, not \"" + text + "\"");
}

/// An option with a value: its name, what it is, and where the value goes.
struct Option {
    std::string name;
    std::string value;
    std::string help;
    std::function<void(const std::string&)> set;
};

template <class Number>
Option numberOption(std::string name, std::string help, Number& field) {
    std::string usual = std::to_string(field);
    if (std::is_floating_point_v<Number>) usual.erase(usual.find('.'));
    const std::string option = "--" + name;
    return {std::move(name), "N", help + " (" + usual + ")",
            [&field, option](const std::string& text) { setNumber(field, option, text); }};
}

std::vector<Option> serveOptions(ServeOptions& serve) {
    RelayLimits& limits = serve.limits;
    return {
        {"listen", "HOST:PORT", "where to listen; port 0 picks one, IPv6 in brackets (" + serve.listen + ")",
         [&serve](const std::string& text) { serve.listen = text; }},
        {"or-listen", "HOST:PORT", "where to listen if another program has that port; can be given several times",
         [&serve](const std::string& text) { serve.orListen.push_back(text); }},
        {"until-released", "FILE",
         "serve only while somebody has a shared lock (flock) on this file, and share one "
         "relay among all who start it so; a relay that dies is started again",
         [&serve](const std::string& text) { serve.untilReleased = text; }},
        {"tls-certificate", "FILE", "PEM file with the certificate and its chain; read again on SIGHUP",
         [&serve](const std::string& text) { serve.tlsCertificate = text; }},
        {"tls-key", "FILE", "PEM file with its key", [&serve](const std::string& text) { serve.tlsKey = text; }},
        numberOption("frame-bytes", "a longer frame closes its link, 1009", limits.frameBytes),
        numberOption("pack-bytes", "a longer pack is refused", limits.packBytes),
        numberOption("queued-bytes", "bytes on their way to one link; above, 1013", limits.queuedBytes),
        numberOption("texts-per-second", "for one key, a text being a pack for each member; above, 1013",
                     limits.textsPerSecond),
        numberOption("burst-seconds", "seconds' worth of texts that may come at once", limits.burst),
        numberOption("links-per-address", "links from one address; above, 1013", limits.linksPerAddress),
        numberOption("links", "links altogether; above, 1013", limits.links),
        numberOption("first-pack-seconds", "time to the first pack; above, 1013", limits.firstPack),
        numberOption("silence-seconds", "time without an answer; above, 1001", limits.silence),
        numberOption("mail-packs", "packs that may wait for one member", limits.mailPacks),
        numberOption("mail-bytes", "bytes that may wait for one member", limits.mailBytes),
        numberOption("mail-days", "days of its running that a pack may wait", limits.mailDays),
        numberOption("header-bytes", "length of an HTTP request; above, status 431", serve.headerBytes),
        numberOption("request-seconds", "time for an HTTP request", serve.requestTime),
    };
}

std::filesystem::path defaultDatabase() {
    const auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::filesystem::path(value ? value : "");
    };
    std::filesystem::path state = variable("XDG_STATE_HOME");
    // The XDG Base Directory Specification says to ignore a path that is not absolute.
    if (!state.is_absolute() && variable("HOME").is_absolute()) state = variable("HOME") / ".local" / "state";
    if (!state.is_absolute()) return {};
    return state / "vimble-relay" / "relay.db";
}

std::optional<CommandLine::Command> commandFrom(const std::string& word) {
    using Command = CommandLine::Command;
    const std::pair<const char*, Command> commands[] = {
        {"serve", Command::serve}, {"add", Command::add},       {"remove", Command::remove},
        {"list", Command::list},   {"backup", Command::backUp}, {"help", Command::help},
        {"--help", Command::help}, {"-h", Command::help},       {"--version", Command::version},
    };
    for (const auto& [name, command] : commands)
        if (word == name) return command;
    return std::nullopt;
}

/// Takes the words behind the command that belong to no option.
void takePlain(CommandLine& commandLine, const std::vector<std::string>& plain) {
    const auto need = [&](std::size_t least, std::size_t most, const char* what) {
        if (plain.size() < least) throw UsageError(std::string("this command needs ") + what);
        if (plain.size() > most) throw UsageError("\"" + plain[most] + "\" is too much");
    };
    switch (commandLine.command) {
        case CommandLine::Command::add:
            need(commandLine.file ? 0 : 1, commandLine.file ? 0 : 1, "a key, or --file FILE");
            break;
        case CommandLine::Command::remove: need(1, 1, "a key"); break;
        case CommandLine::Command::backUp:
            need(1, 1, "a file to write");
            commandLine.file = plain[0];
            return;
        case CommandLine::Command::serve:
        case CommandLine::Command::list: need(0, 0, ""); break;
        case CommandLine::Command::help:
        case CommandLine::Command::version: return;
    }
    commandLine.keys = plain;
}

}  // namespace

CommandLine CommandLine::parsed(const std::vector<std::string>& words) {
    CommandLine commandLine;
    if (words.empty()) throw UsageError("a command is needed: try --help");
    const auto command = commandFrom(words[0]);
    if (!command) throw UsageError("\"" + words[0] + "\" is no command: try --help");
    commandLine.command = *command;
    commandLine.database = defaultDatabase();

    auto options = serveOptions(commandLine.serve);
    if (commandLine.command != Command::serve) options.clear();
    options.push_back({"database", "FILE", "", [&](const std::string& text) { commandLine.database = text; }});
    if (commandLine.command == Command::add)
        options.push_back({"file", "FILE", "", [&](const std::string& text) { commandLine.file = text; }});
    std::vector<std::pair<std::string, bool*>> flags;
    if (commandLine.command == Command::add) flags.emplace_back("--admin", &commandLine.isAdmin);
    if (commandLine.command == Command::serve) {
        flags.emplace_back("--behind-proxy", &commandLine.serve.isBehindProxy);
        flags.emplace_back("--open-metrics", &commandLine.serve.hasOpenMetrics);
    }

    std::vector<std::string> plain;
    for (std::size_t index = 1; index < words.size(); ++index) {
        const std::string& word = words[index];
        if (word == "--help" || word == "-h") {
            commandLine.command = Command::help;
            return commandLine;
        }
        if (!word.starts_with("-")) {
            plain.push_back(word);
            continue;
        }
        bool isKnown = false;
        for (const auto& [name, flag] : flags)
            if (word == name) isKnown = *flag = true;
        for (const Option& option : options) {
            const std::string name = "--" + option.name;
            if (word != name && !word.starts_with(name + "=")) continue;
            isKnown = true;
            if (word == name && index + 1 == words.size()) throw UsageError(name + " needs a value");
            const std::string value = word == name ? words[++index] : word.substr(name.size() + 1);
            if (value.empty()) throw UsageError(name + " needs a value");
            option.set(value);
        }
        if (!isKnown) throw UsageError("\"" + word + "\" is no option of this command: try --help");
    }
    takePlain(commandLine, plain);
    if (commandLine.database.empty()) throw UsageError("there is no home folder for the database: use --database FILE");
    if (commandLine.serve.tlsCertificate.has_value() != commandLine.serve.tlsKey.has_value())
        throw UsageError("--tls-certificate and --tls-key go together");
    if (commandLine.serve.limits.packBytes > commandLine.serve.limits.frameBytes)
        throw UsageError("--pack-bytes can't be more than --frame-bytes");
    commandLine.serve.database = commandLine.database;
    return commandLine;
}

std::string usageText() {
    std::string text =
        "vimble-relay: relays sealed packs between the members of a small group.\n"
        "\n"
        "  vimble-relay serve [OPTIONS]     serve until SIGTERM or SIGINT\n"
        "  vimble-relay add KEY [--admin]   admit a member (a public key of 64 hexadecimal characters)\n"
        "  vimble-relay add --file FILE     admit all keys in a file, one a line (- is standard input)\n"
        "  vimble-relay remove KEY          throw a member out, with the mail that waits for them\n"
        "  vimble-relay list                show the members\n"
        "  vimble-relay backup FILE         write a copy of the database\n"
        "  vimble-relay --help, --version\n"
        "\n"
        "A relay that is running follows what these commands change at once.\n"
        "\n"
        "Every command takes\n"
        "  --database FILE\n"
        "      members and mail (" +
        defaultDatabase().string() +
        ")\n"
        "\n"
        "serve takes\n"
        "  --behind-proxy\n"
        "      addresses are what the proxy in front says in X-Forwarded-For\n"
        "  --open-metrics\n"
        "      answer GET /metrics to everybody, not only to this machine\n";
    ServeOptions serve;
    for (const Option& option : serveOptions(serve))
        text += "  --" + option.name + " " + option.value + "\n      " + option.help + "\n";
    return text;
}
